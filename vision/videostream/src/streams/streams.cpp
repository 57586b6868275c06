// A stream ends in two steps: the delivery lets go of it at once, the device when no call of its
// subscriber is under way. In between it is here, but nobody finds it.
#include "streams.h"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <chrono>
#include <utility>

#include <oxframework/oxbroker.h>
#include <oxframework/oxerror.h>
#include "memory/segment.h"

namespace OX {
namespace {

constexpr const char* kName = "OXVideoStream";
constexpr int kMaxFps = 255;
constexpr int kMinAskedFps = 5;
constexpr int kFreeFps = 30;  // asked of the camera when each frame is wanted
// For a call of the subscriber that is under way, which the device itself waits for as long.
constexpr std::chrono::seconds kCloseLimit(10);

void giveNothing(Receiver& pReceiver) { pReceiver.giveNothing(); }

Delivery::Farewell overFarewell(const std::string& pId) {
  return [pId](Receiver& pReceiver) { pReceiver.fail(Stream::overError(pId)); };
}

Quota::Limits limitsOf(const OXBroker& pBroker) {
  const Quota::Limits limits;
  return {pBroker.getSetting("stream.perConnection", limits.streams),
          pBroker.getSetting("stream.sharedMiBPerClient", limits.sharedMiB),
          pBroker.getSetting("stream.sharedMiB", limits.sharedMiBInAll)};
}

void checkFps(const char* pMethod, int pFps) {
  if (pFps < 0 || pFps > kMaxFps)
    raiseError(kName, pMethod,
               std::to_string(pFps) + " frames a second: a stream has 1 to " +
                   std::to_string(kMaxFps) + ", or 0 for each frame as it comes");
}

int askedFps(int pFps) { return pFps == 0 ? kFreeFps : std::max(pFps, kMinAskedFps); }

}  // namespace

Streams::Streams(const OXBroker& pBroker, boost::weak_ptr<IFrameSource> pSource)
    : fSource(std::move(pSource)),
      fQuota(boost::make_shared<Quota>(limitsOf(pBroker))),
      fDurations(boost::make_shared<StreamDurations>()) {}

boost::shared_ptr<Streams> Streams::create(const boost::shared_ptr<OXBroker>& pBroker,
                                           boost::weak_ptr<IFrameSource> pSource) {
  boost::shared_ptr<Streams> streams(new Streams(*pBroker, std::move(pSource)));
  streams->fDelivery = boost::make_shared<Delivery>(pBroker, streams->fSource, streams->fDurations,
                                                    [weak = streams->weak_from_this()] {
                                                      if (const auto self = weak.lock())
                                                        self->xDropEnded();
                                                    });
  return streams;
}

void Streams::begin() {
  if (const auto source = fSource.lock()) source->setFrameListener(fDelivery);
  fHasBegun = true;
}

void Streams::end() {
  {
    const detail::MutexLock hold(fGuard);
    fIsOver = true;
  }
  if (const auto source = fSource.lock(); source && fHasBegun) source->setFrameListener({});
  fDelivery->stop([](Receiver& pReceiver) {
    pReceiver.fail(OXError(kName, "next", "The service of streams has ended"));
  });
  for (const StreamPtr& stream : xAll()) xEnd(stream, giveNothing);
}

// ---- opening ----

StreamPtr Streams::open(const Wish& pWish) {
  checkFps(pWish.method, pWish.fps);
  Stream::Setup setup;
  setup.share = fQuota->take(pWish.method, pWish.connection,
                             pWish.slots > 0 ? Segment::bytesOf(pWish.slots) : 0);
  const boost::shared_ptr<IFrameSource> source = fSource.lock();
  if (!source) raiseError(kName, pWish.method, "There is no video device in this broker any more");
  if (pWish.slots > 0) setup.segment = boost::make_shared<Segment>(pWish.slots);
  setup.owner = pWish.owner;
  setup.isMulti = pWish.isMulti;
  setup.fps = pWish.fps;
  setup.subscription =
      source->subscribeFrames(pWish.name, pWish.formats, pWish.isMulti, askedFps(pWish.fps));
  const boost::shared_ptr<FrameSubscription> subscription = setup.subscription;
  try {
    return xAdd(pWish, std::move(setup));
  } catch (...) {
    subscription->end();
    throw;
  }
}

StreamPtr Streams::xAdd(const Wish& pWish, Stream::Setup pSetup) {
  StreamPtr stream = boost::make_shared<Stream>(std::move(pSetup));
  StreamPtr earlier;  // of this id, whose subscriber somebody has unsubscribed just now
  {
    const detail::MutexLock hold(fGuard);
    if (fIsOver) raiseError(kName, pWish.method, "The service of streams has ended");
    fDelivery->add(stream, pWish.isShared);
    earlier = std::exchange(fStreams[stream->id()], stream);
  }
  if (earlier) fDelivery->end(earlier, overFarewell(stream->id()));
  // Nobody would end it any more if its subscriber was gone before it was here.
  if (stream->hasEnded()) {
    xEnd(stream, giveNothing);
    throw Stream::overError(stream->id());
  }
  return stream;
}

// ---- looking ----

StreamPtr Streams::find(const char* pMethod, const std::string& pId, int pConnection) const {
  StreamPtr stream;
  {
    const detail::MutexLock hold(fGuard);
    const auto found = fStreams.find(pId);
    if (found != fStreams.end()) stream = found->second;
  }
  if (!stream || stream->hasEnded())
    raiseError(kName, pMethod,
               "There is no stream \"" + pId +
                   "\": it was not opened, was closed, or ended with its subscriber");
  const int owner = stream->owner().connection;
  if (owner != StreamOwner::kNobody && owner != pConnection)
    raiseError(kName, pMethod, "Stream \"" + pId + "\" belongs to another connection");
  return stream;
}

StreamPtr Streams::xFindAcquired(std::uint64_t pAcquisition) const {
  const detail::MutexLock hold(fGuard);
  for (const auto& [id, stream] : fStreams)
    if (stream->owner().acquisition == pAcquisition) return stream;
  return {};
}

std::vector<StreamPtr> Streams::xAll() const {
  const detail::MutexLock hold(fGuard);
  std::vector<StreamPtr> all;
  for (const auto& [id, stream] : fStreams) all.push_back(stream);
  return all;
}

std::string Streams::idOf(std::uint64_t pAcquisition) const {
  const StreamPtr stream = xFindAcquired(pAcquisition);
  return stream ? stream->id() : std::string();
}

// ---- ending ----

bool Streams::xEnd(const StreamPtr& pStream, const Delivery::Farewell& pFarewell) {
  fDelivery->end(pStream, pFarewell);
  if (!pStream->subscription().end()) return false;
  pStream->returnShare();
  const detail::MutexLock hold(fGuard);
  const auto found = fStreams.find(pStream->id());
  if (found != fStreams.end() && found->second == pStream) fStreams.erase(found);
  return true;
}

void Streams::close(const char* pMethod, const StreamPtr& pStream) {
  const auto limit = std::chrono::steady_clock::now() + kCloseLimit;
  while (!xEnd(pStream, giveNothing))
    if (std::chrono::steady_clock::now() > limit)
      raiseError(kName, pMethod,
                 "Stream \"" + pStream->id() +
                     "\" gets no more frames, but a call of its subscriber does not end");
}

bool Streams::endAcquired(std::uint64_t pAcquisition) {
  const StreamPtr stream = xFindAcquired(pAcquisition);
  return !stream || xEnd(stream, giveNothing);
}

void Streams::xDropEnded() {
  for (const StreamPtr& stream : xAll())
    if (stream->hasEnded()) xEnd(stream, overFarewell(stream->id()));
}

}  // namespace OX
