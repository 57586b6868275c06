#include "localstream.h"

#include <algorithm>
#include <boost/enable_shared_from_this.hpp>
#include <boost/make_shared.hpp>
#include <condition_variable>
#include <exception>
#include <span>
#include <thread>
#include <utility>

#include <oxframework/oxlog.h>

namespace OX {
namespace {

constexpr std::chrono::seconds kLongestWait(60);
// As the delivery does, after the device had nothing or failed to deliver.
constexpr std::chrono::milliseconds kShortPause(5);
constexpr std::chrono::milliseconds kFailurePause(250);

void report(int pLevel, const char* pFunction, const std::string& pText) {
  ki::log::log(pLevel, "vision.videostream", pText, "", pFunction, 0);
}

}  // namespace

// ---- callbacks ----

/// A callback from when it is set until it is replaced. Thread-safe.
class FrameCallback : public boost::enable_shared_from_this<FrameCallback> {
 public:
  FrameCallback(std::function<void(Frame)> pCall, boost::shared_ptr<Streams> pStreams,
                const StreamPtr& pStream)
      : fCall(std::move(pCall)), fStreams(std::move(pStreams)), fStream(pStream) {}

  /// Asks for the next frame.
  void ask();
  void call(Frame&& pFrame);
  bool isOver() const {
    const detail::MutexLock hold(fGuard);
    return fIsOver;
  }
  /// Waits for a call that is under way on another thread.
  void end();

 private:
  const std::function<void(Frame)> fCall;
  const boost::shared_ptr<Streams> fStreams;
  const boost::weak_ptr<Stream> fStream;
  mutable detail::Mutex fGuard;
  std::condition_variable fCalled;
  bool fIsOver OX_GUARDED_BY(fGuard) = false;
  std::thread::id fCaller OX_GUARDED_BY(fGuard);  ///< the thread of a call that is under way
};

namespace {

class CallbackReceiver final : public Receiver {
 public:
  explicit CallbackReceiver(boost::shared_ptr<FrameCallback> pCallback)
      : fCallback(std::move(pCallback)) {}
  bool isOver() const override { return fCallback->isOver(); }
  void give(std::span<Frame> pFrames) override {
    fCallback->call(std::move(pFrames[0]));
    fCallback->ask();
  }
  void giveNothing() override {}
  void fail(const OXError& pError) override { report(ki::log::kVerbose, "onFrame", pError.what()); }

 private:
  const boost::shared_ptr<FrameCallback> fCallback;
};

}  // namespace

void FrameCallback::ask() {
  const StreamPtr stream = fStream.lock();
  if (!stream || isOver()) return;
  Request request;
  request.receiver = std::make_unique<CallbackReceiver>(shared_from_this());
  fStreams->delivery().ask(stream, std::move(request));
}

void FrameCallback::call(Frame&& pFrame) {
  {
    const detail::MutexLock hold(fGuard);
    if (fIsOver) return;
    fCaller = std::this_thread::get_id();
  }
  try {
    fCall(std::move(pFrame));
  } catch (const std::exception& error) {
    report(ki::log::kError, "onFrame", std::string("A callback failed: ") + error.what());
  } catch (...) {
    report(ki::log::kError, "onFrame", "A callback failed with an exception of an unknown type");
  }
  const detail::MutexLock hold(fGuard);
  fCaller = {};
  fCalled.notify_all();
}

void FrameCallback::end() {
  detail::MutexLock hold(fGuard);
  fIsOver = true;
  if (fCaller == std::this_thread::get_id()) return;
  fCalled.wait(hold.native(),
               [this]() OX_REQUIRES(fGuard) { return fCaller == std::thread::id(); });
}

// ---- the stream ----

LocalStream::LocalStream(boost::shared_ptr<Streams> pStreams, StreamPtr pStream)
    : fStreams(std::move(pStreams)), fStream(std::move(pStream)) {}

LocalStream::~LocalStream() {
  try {
    onFrame({});
    fStreams->close("open", fStream);
  } catch (const std::exception& error) {
    report(ki::log::kWarning, "open", error.what());
  }
}

void LocalStream::onFrame(std::function<void(Frame)> pCallback) {
  boost::shared_ptr<FrameCallback> next;
  if (pCallback) next = boost::make_shared<FrameCallback>(std::move(pCallback), fStreams, fStream);
  boost::shared_ptr<FrameCallback> earlier = next;
  {
    const detail::MutexLock hold(fGuard);
    earlier.swap(fCallback);
  }
  if (earlier) {
    earlier->end();
    fStreams->delivery().dropLeft(fStream);
  }
  if (next) next->ask();
}

Frame LocalStream::waitForFrame(std::chrono::microseconds pTimeout) {
  return xWait(Stream::Pixels::kConverted, pTimeout);
}

Frame LocalStream::waitForRawFrame(std::chrono::microseconds pTimeout) {
  return xWait(Stream::Pixels::kRaw, pTimeout);
}

Frame LocalStream::xWait(Stream::Pixels pPixels, std::chrono::microseconds pTimeout) {
  using Clock = Stream::Clock;
  const auto limit =
      std::clamp<std::chrono::microseconds>(pTimeout, std::chrono::microseconds(0), kLongestWait);
  const Clock::time_point deadline = Clock::now() + limit;
  Clock::time_point notBefore{};
  std::uint64_t seenBefore = fStream->wakeup().count();
  for (;;) {
    const std::uint64_t seen = fStream->wakeup().count();
    // What has come since the last attempt may fare better.
    if (std::exchange(seenBefore, seen) != seen) notBefore = {};
    if (fStream->hasEnded()) return {};
    const Clock::time_point now = Clock::now();
    const auto next = fStream->nextChance(now, fStreams->source().get());
    if (next && std::max(*next, notBefore) <= now) {
      Frame frame;
      const Stream::Result result = fStream->take(pPixels, false, {}, {&frame, 1});
      if (result == Stream::Result::kFrame) return frame;
      notBefore =
          Clock::now() + (result == Stream::Result::kNothingNew ? kShortPause : kFailurePause);
      continue;
    }
    if (now >= deadline) {
      fStream->countTimeOut();
      return {};
    }
    const Clock::time_point moment = next ? std::max(*next, notBefore) : deadline;
    // Rounded up: a wait that ends before the moment would be followed by another one.
    fStream->wakeup().wait(
        seen, std::chrono::ceil<std::chrono::microseconds>(std::min(moment, deadline) - now));
  }
}

}  // namespace OX
