/// A request for the next frame of a stream.
#pragma once

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include <oxframework/oxerror.h>
#include <oxvision/frame.h>
#include <oxvision/iframesource.h>

namespace OX {

class AheadFrame;

/// Who waits for a frame, and how it is brought there. Ended by one of give(), giveNothing() and
/// fail(), or by its destruction. One thread at a time, except for isOver() and whenReady().
class Receiver {
 public:
  virtual ~Receiver() = default;
  /// Whether nobody waits any more.
  virtual bool isOver() const = 0;
  /// Where the pixels of pCount cameras are to go; none for where they are. False when there is no
  /// room now: asked again after Delivery::noteRoom(). May be called again before give().
  virtual bool prepare([[maybe_unused]] std::vector<FrameTarget>& pTargets,
                       [[maybe_unused]] std::size_t pCount) {
    return true;
  }
  /// Takes the slot of a frame that is there already, with which give() is called then.
  virtual bool adopt([[maybe_unused]] AheadFrame& pAhead) { return false; }
  /// Whether a frame is taken only after whenReady() has called pReady, once, now or later: when a
  /// frame would be on its way at once.
  virtual bool mustBeReady() const { return false; }
  virtual void whenReady([[maybe_unused]] std::function<void()> pReady) {}
  /// One frame a camera, empty where there is none; not all are.
  virtual void give(std::span<Frame> pFrames) = 0;
  /// The time is over, or the stream was closed.
  virtual void giveNothing() = 0;
  virtual void fail(const OXError& pError) = 0;
};

struct Request {
  using Clock = std::chrono::steady_clock;

  std::unique_ptr<Receiver> receiver;
  FrameSubscription::Pixels pixels = FrameSubscription::Pixels::kConverted;
  Clock::time_point deadline = Clock::time_point::max();  ///< the latter is none

  /// Set by what whenReady() calls; null before it was asked.
  boost::shared_ptr<std::atomic<bool>> isReady{};
  bool awaitsRoom = false;  ///< it could not be prepared
  bool mayBeServed() const { return !awaitsRoom && (!isReady || *isReady); }
};

}  // namespace OX
