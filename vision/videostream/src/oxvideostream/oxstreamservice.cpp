// Checks what callers pass, and hands it on.
#include "oxstreamservice.h"

#include <algorithm>
#include <limits>
#include <utility>

#include <oxframework/oxbroker.h>
#include <oxframework/oxerror.h>
#include "memory/segment.h"
#include "streams/localstream.h"
#include "streams/receivers.h"

namespace OX {
namespace {

constexpr const char* kName = "OXVideoStream";
constexpr const char* kDevice = "OXVideoDevice";
constexpr int kMaxTimeoutMs = 60000;
constexpr int kDefaultSlots = 4;

/// The connection of the call that runs on this thread.
int callerConnection() {
  const OXCallerContext* const caller = OXCallerContext::current();
  return caller ? caller->getCaller().connection : StreamOwner::kLocal;
}

boost::weak_ptr<IFrameSource> sourceOf(const OXBroker& pBroker) {
  return boost::dynamic_pointer_cast<IFrameSource>(pBroker.getModule(kDevice));
}

/// Two ints where one is too small, as in time stamps.
OXValue toValue(std::uint64_t pNumber) {
  if (pNumber <= static_cast<std::uint64_t>(std::numeric_limits<int>::max()))
    return static_cast<int>(pNumber);
  return OXValue::array(static_cast<int>(static_cast<std::uint32_t>(pNumber >> 32)),
                        static_cast<int>(static_cast<std::uint32_t>(pNumber)));
}

OXValue toValue(std::int64_t pNumber) {
  return pNumber < 0 ? OXValue(-1) : toValue(static_cast<std::uint64_t>(pNumber));
}

std::vector<FrameFormat> formatsOf(const char* pMethod, const OXValue& pCameras,
                                   const OXValue& pResolutions, const OXValue& pColorSpaces) {
  const std::vector<int> cameras = pCameras.toIntVector();
  const std::vector<int> resolutions = pResolutions.toIntVector();
  const std::vector<int> colorSpaces = pColorSpaces.toIntVector();
  if (cameras.size() != resolutions.size() || cameras.size() != colorSpaces.size())
    raiseError(kName, pMethod,
               std::to_string(cameras.size()) + " cameras, " + std::to_string(resolutions.size()) +
                   " resolutions and " + std::to_string(colorSpaces.size()) +
                   " colour spaces: one of each is needed for a camera");
  std::vector<FrameFormat> formats;
  for (std::size_t i = 0; i < cameras.size(); ++i)
    formats.push_back({cameras[i], resolutions[i], colorSpaces[i]});
  return formats;
}

/// Of several cameras, each request takes a slot a camera.
int checkedSlots(const Streams::Wish& pWish, int pSlots) {
  const int cameras = static_cast<int>(pWish.formats.size());
  if (pSlots == 0) return std::min(std::max(kDefaultSlots, 2 * cameras), Segment::kMaxSlots);
  const int least = std::max(Segment::kMinSlots, cameras);
  if (pSlots < least || pSlots > Segment::kMaxSlots)
    raiseError(kName, pWish.method,
               std::to_string(pSlots) + " slots: a stream of " + std::to_string(cameras) +
                   (cameras == 1 ? " camera" : " cameras") + " has " + std::to_string(least) +
                   " to " + std::to_string(Segment::kMaxSlots) + ", or 0 for as many as usual");
  return pSlots;
}

}  // namespace

OXStreamService::OXStreamService(boost::shared_ptr<OXBroker> pBroker)
    : OXModule(pBroker, kName), fStreams(Streams::create(pBroker, sourceOf(*pBroker))) {
  if (!fStreams->source())
    raiseError(kName, kName, "There is no video device in this broker that delivers frames");
  xPublish();
  xDeclareOwnership();
}

OXStreamService::~OXStreamService() { fStreams->end(); }

void OXStreamService::init() { fStreams->begin(); }

void OXStreamService::xDeclareOwnership() {
  declareOwnership(
      {.acquiring = {"open", "openStreams", "openShared", "openStreamsShared"},
       .returning = {"close"},
       .findId = [this](std::uint64_t pNumber) { return fStreams->idOf(pNumber); },
       .end = [this](std::uint64_t pNumber) { return fStreams->endAcquired(pNumber); }});
}

// ---- opening ----

Streams::Wish OXStreamService::xWish(const char* pMethod, const std::string& pName,
                                     std::vector<FrameFormat> pFormats, bool pIsMulti,
                                     int pFps) const {
  Streams::Wish wish{.method = pMethod,
                     .name = pName,
                     .formats = std::move(pFormats),
                     .isMulti = pIsMulti,
                     .fps = pFps};
  wish.connection = callerConnection();
  wish.owner = {wish.connection, getAcquisition()};
  // Of a connection that keeps what it subscribes.
  if (wish.connection != StreamOwner::kLocal && wish.owner.acquisition == 0)
    wish.owner.connection = StreamOwner::kNobody;
  return wish;
}

std::unique_ptr<FrameStream> OXStreamService::open(const std::string& pName,
                                                   const FrameFormat& pFormat, int pFps) {
  const Streams::Wish wish{
      .method = "open", .name = pName, .formats = {pFormat}, .fps = pFps, .isShared = false};
  return std::make_unique<LocalStream>(fStreams, fStreams->open(wish));
}

std::string OXStreamService::open(const std::string& pName, const int& pCamera,
                                  const int& pResolution, const int& pColorSpace, const int& pFps) {
  return fStreams->open(xWish("open", pName, {{pCamera, pResolution, pColorSpace}}, false, pFps))
      ->id();
}

std::string OXStreamService::openStreams(const std::string& pName, const OXValue& pCameras,
                                         const OXValue& pResolutions, const OXValue& pColorSpaces,
                                         const int& pFps) {
  constexpr const char* kMethod = "openStreams";
  return fStreams
      ->open(xWish(kMethod, pName, formatsOf(kMethod, pCameras, pResolutions, pColorSpaces), true,
                   pFps))
      ->id();
}

void OXStreamService::openShared(const std::string& pName, const int& pCamera,
                                 const int& pResolution, const int& pColorSpace, const int& pFps,
                                 const int& pSlots, OXCompletion pCompletion) {
  xOpenShared(xWish("openShared", pName, {{pCamera, pResolution, pColorSpace}}, false, pFps),
              pSlots, pCompletion);
}

void OXStreamService::openStreamsShared(const std::string& pName, const OXValue& pCameras,
                                        const OXValue& pResolutions, const OXValue& pColorSpaces,
                                        const int& pFps, const int& pSlots,
                                        OXCompletion pCompletion) {
  constexpr const char* kMethod = "openStreamsShared";
  xOpenShared(
      xWish(kMethod, pName, formatsOf(kMethod, pCameras, pResolutions, pColorSpaces), true, pFps),
      pSlots, pCompletion);
}

void OXStreamService::xOpenShared(Streams::Wish pWish, int pSlots,
                                  const OXCompletion& pCompletion) {
  if (!pCompletion.takesDescriptor())
    raiseError(kName, pWish.method,
               "Shared memory needs a connection by a Unix-domain socket (unix:PATH), which this "
               "one is not");
  // Nobody else could read the memory, which would be in use for ever.
  if (pWish.owner.connection == StreamOwner::kNobody)
    raiseError(kName, pWish.method,
               "A stream with shared memory ends with its connection, which keeps what it "
               "subscribes: call OXBroker.keepSubscriptions(false) first");
  pWish.slots = checkedSlots(pWish, pSlots);
  const StreamPtr stream = fStreams->open(pWish);
  Segment& segment = *stream->segment();
  pCompletion.answer(OXValue::array(stream->id(), static_cast<int>(Segment::bytesOf(pWish.slots)),
                                    pWish.slots, static_cast<int>(segment.offsetOf(0)),
                                    static_cast<int>(Segment::bytesOfSlot())),
                     segment.takeDescriptor());
}

// ---- frames ----

StreamPtr OXStreamService::xFind(const char* pMethod, const std::string& pId) const {
  return fStreams->find(pMethod, pId, callerConnection());
}

void OXStreamService::next(const std::string& pId, const int& pTimeoutMs,
                           OXCompletion pCompletion) {
  xNext("next", pId, pTimeoutMs, Stream::Pixels::kConverted, false, std::move(pCompletion));
}

void OXStreamService::nextRaw(const std::string& pId, const int& pTimeoutMs,
                              OXCompletion pCompletion) {
  xNext("nextRaw", pId, pTimeoutMs, Stream::Pixels::kRaw, false, std::move(pCompletion));
}

void OXStreamService::nextShared(const std::string& pId, const int& pTimeoutMs,
                                 OXCompletion pCompletion) {
  xNext("nextShared", pId, pTimeoutMs, Stream::Pixels::kConverted, true, std::move(pCompletion));
}

void OXStreamService::nextRawShared(const std::string& pId, const int& pTimeoutMs,
                                    OXCompletion pCompletion) {
  xNext("nextRawShared", pId, pTimeoutMs, Stream::Pixels::kRaw, true, std::move(pCompletion));
}

void OXStreamService::xNext(const char* pMethod, const std::string& pId, int pTimeoutMs,
                            Stream::Pixels pPixels, bool pIsShared, OXCompletion pCompletion) {
  const StreamPtr stream = xFind(pMethod, pId);
  if (pTimeoutMs < 0 || pTimeoutMs > kMaxTimeoutMs)
    raiseError(kName, pMethod,
               "A wait of " + std::to_string(pTimeoutMs) + " ms: 0 to " +
                   std::to_string(kMaxTimeoutMs) + " are possible");
  if (pIsShared && !stream->segment())
    raiseError(kName, pMethod,
               "Stream \"" + pId + "\" has no shared memory: open it with openShared");
  const AnswerForm form{stream->isMulti(), OXCallerContext::current() == nullptr, pTimeoutMs > 0,
                        pPixels == Stream::Pixels::kRaw, fStreams->durations()};
  Request request;
  request.pixels = pPixels;
  request.deadline = Request::Clock::now() + std::chrono::milliseconds(pTimeoutMs);
  request.receiver = pIsShared ? makeSharedReceiver(pCompletion, form, stream->segment())
                               : makeReceiver(pCompletion, form);
  fStreams->delivery().ask(stream, std::move(request));
  // A request that waits is dropped when its caller is gone.
  if (pCompletion.isOver()) return;
  pCompletion.onCancel(
      [streams = boost::weak_ptr<Streams>(fStreams), weak = boost::weak_ptr<Stream>(stream)] {
        const auto open = streams.lock();
        const auto left = weak.lock();
        if (open && left) open->delivery().dropLeft(left);
      });
}

void OXStreamService::release(const std::string& pId, const int& pSlot, const int& pGeneration) {
  const StreamPtr stream = xFind("release", pId);
  if (!stream->segment() || !stream->segment()->slots().release({pSlot, pGeneration}))
    raiseError(kName, "release",
               "Slot " + std::to_string(pSlot) + " of stream \"" + pId + "\" is not held in " +
                   "generation " + std::to_string(pGeneration));
  fStreams->delivery().noteRoom(stream);
}

OXValue OXStreamService::frameNumber(const std::string& pId) {
  const StreamPtr stream = xFind("frameNumber", pId);
  if (!stream->isMulti()) return toValue(stream->frameNumber(0));
  OXValue::Array numbers;
  for (std::size_t i = 0; i < stream->cameras(); ++i)
    numbers.push_back(toValue(stream->frameNumber(i)));
  return {std::move(numbers)};
}

OXValue OXStreamService::statistics(const std::string& pId) {
  const StreamStatistics all = xFind("statistics", pId)->statistics();
  return OXValue::array(toValue(all.given), toValue(all.skipped), toValue(all.timedOut),
                        toValue(all.ageMedianUs), toValue(all.age99Us), toValue(all.newestAgeUs));
}

void OXStreamService::close(const std::string& pId) {
  fStreams->close("close", xFind("close", pId));
}

OXValue OXStreamService::timings() {
  const auto row = [](const char* pStage, const OXDurations& pDurations) {
    const auto us = [&](double pShare) {
      return std::chrono::duration<float, std::micro>(pDurations.percentile(pShare)).count();
    };
    return OXValue::array(pStage, toValue(pDurations.count()), us(0.5), us(0.99));
  };
  OXValue::Array rows;
  if (const auto device = fStreams->source()) {
    const StageDurations& stages = device->stages();
    rows.push_back(row("push", stages.push));
    rows.push_back(row("resample", stages.resample));
    rows.push_back(row("convert", stages.convert));
    rows.push_back(row("copy", stages.copy));
  }
  const StreamDurations& own = *fStreams->durations();
  rows.push_back(row("wake", own.wake));
  rows.push_back(row("join", own.join));
  rows.push_back(row("send", own.send));
  return {std::move(rows)};
}

}  // namespace OX
