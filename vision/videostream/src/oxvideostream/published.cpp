// The publications of OXVideoStream, with their texts, from which docs/reference.md has its
// chapter.
#include <oxframework/oxcompletion.h>
#include <oxvalue/detail/publication.h>
#include "oxstreamservice.h"

namespace OX {
namespace {

using Row = OXPublication<OXStreamService>;

constexpr const char* kTimeout = "how long to wait for a frame, milliseconds: 0 to 60000";
constexpr const char* kId = "id of the stream, as it was opened";
constexpr const char* kFps =
    "0 for each frame as it comes, with 30 a second asked of the camera; 1 to 255 for at most so "
    "many a second, with at least 5 asked of it";
constexpr const char* kImage =
    "the array of twelve elements of OXVideoDevice.getImageRemote; of several cameras, that of "
    "getImagesRemote, with nil in place of a camera without a new frame; nil when there was no new "
    "frame in that time, and when the stream was closed meanwhile";
constexpr const char* kSharedImage =
    "the array of twelve elements with [slot, offset in the segment, bytes, generation] in place "
    "of the pixels; of several cameras an array with one such array for each, or nil; nil when "
    "there was no new frame and no free slot in that time, and when the stream was closed";
constexpr const char* kSegment =
    "[id, bytes of the segment, slots, offset of slot 0, bytes a slot]; the descriptor of the "
    "segment comes with the first byte of this answer";
constexpr const char* kSlots =
    "images that the memory holds, 2 to 32 and one for each camera at least; 0 for 4, and 2 for "
    "each camera";

Row::Text camera() { return {"camera", "camera, from 0; negative: the one that is active now"}; }
Row::Text resolution() { return {"resolution", "0 (160 x 120) to 3 (1280 x 960)"}; }
Row::Text colorSpace() { return {"colorSpace", "colour space of the images"}; }
Row::Text name() { return {"name", "name of the subscriber; the id if it is free"}; }

std::vector<Row> openingRows() {
  using Service = OXStreamService;
  const std::vector<Row::Text> lists{{"cameras", "array of the cameras, each once"},
                                     {"resolutions", "array with the resolution of each"},
                                     {"colorSpaces", "array with the colour space of each"}};
  const Row::Text fps{"fps", kFps};
  const Row::Text slots{"slots", kSlots};
  return {
      {.name = "open",
       .description = "Opens a stream of the frames of one camera, and subscribes it at the device",
       .method = operation<Service, std::string, const std::string&, const int&, const int&,
                           const int&, const int&>(&Service::open),
       .parameters = {name(), camera(), resolution(), colorSpace(), fps},
       .result = {"id", "id of the stream and of its subscriber"},
       .examples = {{"shell", "oxvideo call --keep OXVideoStream open mine 0 2 11 0"}}},
      {.name = "openStreams",
       .description = "Opens a stream of the frames of several cameras",
       .method = operation(&Service::openStreams),
       .parameters = {name(), lists[0], lists[1], lists[2], fps},
       .result = {"id", "id of the stream and of its subscriber"},
       .examples = {{"shell",
                     "oxvideo call --keep OXVideoStream openStreams both '[0, 1]' "
                     "'[2, 1]' '[11, 0]' 0"}}},
      {.name = "openShared",
       .description = "Opens a stream of one camera with memory that the client maps; only by a "
                      "Unix-domain socket. Fails beyond 64 MiB a client and 512 MiB in all "
                      "(options of oxbroker)",
       .method = operation(&Service::openShared),
       .parameters = {name(), camera(), resolution(), colorSpace(), fps, slots},
       .result = {"segment", kSegment}},
      {.name = "openStreamsShared",
       .description = "Opens a stream of several cameras with memory that the client maps",
       .method = operation(&Service::openStreamsShared),
       .parameters = {name(), lists[0], lists[1], lists[2], fps, slots},
       .result = {"segment", kSegment}},
  };
}

std::vector<Row> frameRows() {
  using Service = OXStreamService;
  const std::vector<Row::Text> request{{"id", kId}, {"timeoutMs", kTimeout}};
  return {
      {.name = "next",
       .description =
           "Waits for the next frame: each is given at most once, always the newest, and none from "
           "before the stream was opened. Requests of a stream are answered in their order, each "
           "with a frame of its own; of several cameras, when each has a new one or the time is "
           "over",
       .method = operation(&Service::next),
       .parameters = request,
       .result = {"image", kImage},
       .examples = {{"shell", "oxvideo call OXVideoStream next mine 1000"}}},
      {.name = "nextRaw",
       .description = "The same as the camera has it: kYUV422 at the camera's own size. A frame "
                      "that next has returned is not returned again",
       .method = operation(&Service::nextRaw),
       .parameters = request,
       .result = {"image", kImage}},
      {.name = "nextShared",
       .description = "Waits for the next frame, whose pixels come through shared memory. The "
                      "slot is the client's until it releases it; while all are, the request waits",
       .method = operation(&Service::nextShared),
       .parameters = request,
       .result = {"image", kSharedImage}},
      {.name = "nextRawShared",
       .description = "The same as the camera has it",
       .method = operation(&Service::nextRawShared),
       .parameters = request,
       .result = {"image", kSharedImage}},
      {.name = "release",
       .description = "Gives a slot back. Fails unless the client has it in this generation",
       .method = operation(&Service::release),
       .parameters = {{"id", kId},
                      {"slot", "slot of the image"},
                      {"generation", "generation of the slot, as it came with the image"}}},
  };
}

std::vector<Row> otherRows() {
  using Service = OXStreamService;
  return {
      {.name = "frameNumber",
       .description = "The number of the frame that was given last. Numbers rise with each frame "
                      "of a camera, by more than 1 where frames were skipped",
       .method = operation(&Service::frameNumber),
       .parameters = {{"id", kId}},
       .result = {"number",
                  "int, 0 before the first; array of them for several cameras. One of "
                  "more than 31 bits is an array of its upper and lower 32 bits"}},
      {.name = "statistics",
       .description = "What became of the frames of a stream",
       .method = operation(&Service::statistics),
       .parameters = {{"id", kId}},
       .result = {"statistics",
                  "array: frames given; frames skipped; requests whose time was over; age of "
                  "frames when they were given, median, microseconds; the same, 99th percentile; "
                  "age of the camera's newest frame, -1 without one. One of more than 31 bits is "
                  "an array of its upper and lower 32 bits"},
       .examples = {{"shell", "oxvideo call OXVideoStream statistics mine"}}},
      {.name = "close",
       .description = "Ends a stream and its subscriber. Requests under way get nil",
       .method = operation(&Service::close),
       .parameters = {{"id", kId}}},
      {.name = "timings",
       .description =
           "How long the stages of a delivery took since the broker began, of all streams "
           "together: push (the copy of a pushed frame), resample (to the camera's size), convert "
           "(to a subscriber's format), copy (to shared memory, where the frame was converted for "
           "others too), wake (from the arrival of a frame to the beginning of its delivery to a "
           "request that waits), join (the pixels of several cameras), send (of an answer, until "
           "the system has it or its socket is full)",
       .method = operation(&Service::timings),
       .result = {"stages",
                  "array with one array a stage: name; how often; median, microseconds "
                  "(float); 99th percentile"},
       .examples = {{"shell", "oxvideo call OXVideoStream timings"}}},
  };
}

}  // namespace

void OXStreamService::xPublish() {
  setModuleDescription(
      "Frames as they come: each once, the newest, without polling; to clients on the same machine "
      "also through shared memory. A stream belongs to the connection that opened it and ends with "
      "it, or when its subscriber is unsubscribed at the device. Setters of the device don't "
      "change its format.");
  for (const auto& rows : {openingRows(), frameRows(), otherRows()})
    publish(bindPublications(this, getName(), rows));
}

}  // namespace OX
