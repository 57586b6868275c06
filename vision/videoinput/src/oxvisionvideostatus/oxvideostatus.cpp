// Turns the device's copies into arrays. Further fields may follow at the end of each one, so
// readers look at the first ones and ignore more. Numbers that outgrow 32 bits stay at the largest.
#include "oxvideostatus.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <utility>

#include <oxframework/oxbroker.h>
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxerror.h>
#include <oxvalue/detail/publication.h>
#include "status/devicestatus.h"

namespace OX {
namespace {

constexpr const char* kName = "OXVideoStatus";
constexpr const char* kDevice = "OXVideoDevice";
constexpr const char* kStreams = "OXVideoStream";
constexpr const char* kNoDevice = "there is no video device in this broker";

int toInt(std::int64_t pNumber) {
  return static_cast<int>(std::clamp<std::int64_t>(pNumber, std::numeric_limits<int>::min(),
                                                   std::numeric_limits<int>::max()));
}
int toInt(std::uint64_t pNumber) {
  return toInt(
      static_cast<std::int64_t>(std::min<std::uint64_t>(pNumber, std::numeric_limits<int>::max())));
}

int milliseconds(std::int64_t pMicroseconds) {
  return pMicroseconds < 0 ? -1 : toInt(pMicroseconds / 1000);
}

OXValue stamp(std::int64_t pMicroseconds) {
  return OXValue::array(toInt(pMicroseconds / 1000000), toInt(pMicroseconds % 1000000));
}

OXValue sizes(const std::vector<int>& pResolutions) {
  OXValue::Array result;
  for (const int resolution : pResolutions) {
    int width = 0;
    int height = 0;
    setSizeFromResolution(resolution, width, height);
    result.push_back(OXValue::array(width, height));
  }
  return {std::move(result)};
}

OXValue toValue(const CameraStatus& pCamera) {
  const FeedStatus& feed = pCamera.feed;
  const bool isFed = feed.isFed;
  return OXValue::array(pCamera.index, pCamera.model, OXValue::array(pCamera.width, pCamera.height),
                        pCamera.colorSpace, pCamera.frameRate, pCamera.grabberState,
                        sizes(pCamera.resolutions), pCamera.lowestRate, pCamera.highestRate,
                        isFed ? stamp(feed.stampUs) : OXValue(OXValue::Array()),
                        isFed ? OXValue::array(feed.width, feed.height) : OXValue(OXValue::Array()),
                        feed.feeder, static_cast<float>(feed.perSecond), toInt(feed.dropped),
                        milliseconds(isFed ? feed.ageUs : -1), feed.isReplay ? "replay" : "push");
}

OXValue toValue(const SubscriberStatus& pSubscriber, const std::string& pOwner) {
  return OXValue::array(
      pSubscriber.id, pOwner, OXValue(pSubscriber.cameras), sizes(pSubscriber.resolutions),
      OXValue(pSubscriber.colorSpaces), pSubscriber.frameRate, OXValue(pSubscriber.cameraRates),
      toInt(pSubscriber.served), milliseconds(pSubscriber.ageUs), pSubscriber.holds);
}

const char* stateName(RecordingState pState) {
  switch (pState) {
    case RecordingState::kRecording:
      return "recording";
    case RecordingState::kComplete:
      return "complete";
    case RecordingState::kStopped:
      return "stopped";
    default:
      return "failed";
  }
}

// Bytes soon exceed 32 bits: as a float they are right to seven digits.
OXValue toValue(const RecordingStatus& pRecording) {
  return OXValue::array(pRecording.id, pRecording.path, toInt(pRecording.images),
                        static_cast<float>(pRecording.bytes), stateName(pRecording.state),
                        pRecording.reason, toInt(pRecording.missing), stamp(pRecording.firstUs),
                        stamp(pRecording.lastUs), pRecording.wanted, pRecording.frameRate,
                        pRecording.period);
}

}  // namespace

OXVideoStatus::OXVideoStatus(boost::shared_ptr<OXBroker> pBroker)
    : OXModule(pBroker, kName),
      fDevice(boost::dynamic_pointer_cast<const DeviceStatus>(pBroker->getModule(kDevice))) {
  if (fDevice.expired()) throw OXError(kName, kName, kNoDevice, "", 0);
  setModuleDescription(
      "The state of the video device: who has subscribed, what cameras run at and who feeds them, "
      "and what became of recordings. It changes nothing.");
  using Status = OXVideoStatus;
  publish(bindPublications(
      this, kName,
      std::vector<OXPublication<Status>>{
          {.name = "getSubscribers",
           .description = "Describes every subscriber",
           .method = operation(&Status::getSubscribers),
           .result = {"subscribers",
                      "array with one array a subscriber: id; the connection that owns it, \"\" "
                      "when none does; cameras; [width, height] asked for, in pixels, of each "
                      "camera; colour space asked for, of each; rate asked for, images a second; "
                      "rate that each camera runs at, images a second; images served; "
                      "milliseconds since the last one, -1 before the first; images that it holds"},
           .examples = {{"shell", "oxvideo call OXVideoStatus getSubscribers"}}},
          {.name = "getCameras",
           .description = "Describes every camera and what came to it last",
           .method = operation(&Status::getCameras),
           .result = {"cameras",
                      "array with one array a camera: index; model; [width, height] that it runs "
                      "at, in pixels; colour space; rate that it runs at, images a second; grabber "
                      "(-1 failed, 0 stopped, 1 opening, 2 closing, 3 running); the sizes that it "
                      "can do; lowest rate that it can run at, images a second; highest; time "
                      "stamp of the last push or replay step as [seconds, microseconds] since "
                      "1970, empty before the first; size of that frame as [width, height], empty "
                      "before the first; who pushed it: a client's name or address, or \"local\", "
                      "and \"\" of a replay; pushes or steps a second over the last two seconds; "
                      "frames that came and were lost: pushes that found no buffer or were "
                      "overtaken, images that a replay passed over; milliseconds since the last "
                      "push or step, -1 before the first; \"push\" or \"replay\""},
           .examples = {{"shell", "oxvideo call OXVideoStatus getCameras"}}},
          {.name = "getRecordings",
           .description = "Describes the recordings under way and the last 64 that have ended, in "
                          "the order of their beginning",
           .method = operation(&Status::getRecordings),
           .result = {"recordings",
                      "array with one array a recording: id of its subscriber; path as it was "
                      "passed; images; bytes of their pixels (float); \"recording\", \"complete\", "
                      "\"stopped\" (fewer images than asked for) or \"failed\"; why it ended, \"\" "
                      "while it records; images missing between those recorded: each gap of more "
                      "than one and a half periods of the rate asked for; time stamp of the first "
                      "image as [seconds, microseconds] since 1970; of the last one; images asked "
                      "for; rate asked for, images a second; one image in this many is recorded"},
           .examples = {{"shell", "oxvideo call OXVideoStatus getRecordings"}}},
      }));
}

boost::shared_ptr<const DeviceStatus> OXVideoStatus::xDevice(const char* pMethod) const {
  boost::shared_ptr<const DeviceStatus> device = fDevice.lock();
  if (!device) throw OXError(kName, pMethod, kNoDevice, "", 0);
  return device;
}

OXValue OXVideoStatus::getSubscribers() {
  // After the copy, so that the broker is asked without a lock of the device.
  const std::vector<SubscriberStatus> subscribers = xDevice("getSubscribers()")->subscriberStatus();
  const boost::shared_ptr<OXBroker> broker = getParentBroker();
  std::map<std::string, std::string> owners;
  if (broker) {
    owners = broker->getOwners(kDevice);
    // A stream's subscriber belongs to whoever opened the stream.
    owners.merge(broker->getOwners(kStreams));
  }
  OXValue::Array result;
  for (const SubscriberStatus& subscriber : subscribers)
    result.push_back(toValue(subscriber, owners[subscriber.id]));
  return {std::move(result)};
}

OXValue OXVideoStatus::getCameras() {
  OXValue::Array result;
  for (const CameraStatus& camera : xDevice("getCameras()")->cameraStatus())
    result.push_back(toValue(camera));
  return {std::move(result)};
}

OXValue OXVideoStatus::getRecordings() {
  OXValue::Array result;
  for (const RecordingStatus& recording : xDevice("getRecordings()")->recordingStatus())
    result.push_back(toValue(recording));
  return {std::move(result)};
}

}  // namespace OX
