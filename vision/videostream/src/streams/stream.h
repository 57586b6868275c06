/// One stream: what was given of its cameras' frames, and who waits for more.
#pragma once

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <oxframework/oxclock.h>
#include <oxframework/oxdurations.h>
#include <oxframework/oxthreadsafety.h>
#include <oxvision/ivideostream.h>
#include "pace.h"
#include "quota.h"
#include "request.h"

namespace OX {

class AheadFrame;
class Segment;

/// Whose a stream is.
struct StreamOwner {
  static constexpr int kLocal = 0;    ///< this process
  static constexpr int kNobody = -1;  ///< anyone may use it
  int connection = kLocal;
  std::uint64_t acquisition = 0;  ///< see OXOwnership; 0: it stays when its connection ends
};

class Stream;

/// Streams that one task of the broker serves.
struct StreamGroup {
  std::vector<boost::shared_ptr<Stream>> due;
  bool isPosted = false;
};

/// The requests of a stream. The delivery's, under its lock.
struct StreamLine {
  std::deque<Request> requests;
  boost::shared_ptr<StreamGroup> group;
  std::function<void(Receiver&)> farewell;  ///< set when it takes no more requests
  std::unique_ptr<AheadFrame> ahead;        ///< null when there is none
  bool isServed = false;  ///< by a thread, which has taken a request out or is about to
  bool again = false;     ///< something has happened meanwhile
  bool isDue = false;     ///< it is in its group
  bool isWoken = false;   ///< by a frame
  Pace::Clock::time_point notBefore{};  ///< after the device failed to deliver
};

/// Thread-safe, but for line().
class Stream {
 public:
  using Clock = Pace::Clock;
  using Pixels = FrameSubscription::Pixels;
  using Result = FrameSubscription::Result;

  struct Setup {
    boost::shared_ptr<FrameSubscription> subscription;
    StreamOwner owner;
    bool isMulti = false;  ///< answers are lists of images
    int fps = 0;
    Quota::Share share;
    boost::shared_ptr<Segment> segment{};  ///< null without shared memory
  };
  explicit Stream(Setup pSetup);
  ~Stream();

  /// What the requests of a stream get whose subscriber somebody has unsubscribed.
  static OXError overError(const std::string& pId);

  const std::string& id() const { return fSetup.subscription->id(); }
  const StreamOwner& owner() const { return fSetup.owner; }
  bool isMulti() const { return fSetup.isMulti; }
  const boost::shared_ptr<Segment>& segment() const { return fSetup.segment; }
  FrameSubscription& subscription() const { return *fSetup.subscription; }
  const std::vector<FrameFormat>& formats() const { return fSetup.subscription->formats(); }
  std::size_t cameras() const { return fMarks.size(); }
  bool hasCamera(int pCamera) const;

  /// That a camera has a newer frame: the numbers count from the first one that is noted.
  void note(int pCamera);
  /// When there is something to take of each camera, in keeping with the rate: now, or at a later
  /// moment; empty when only an event brings it. pSource is null when the device has ended.
  std::optional<Clock::time_point> nextChance(Clock::time_point pNow,
                                              const IFrameSource* pSource) const;
  bool hasAnyNew() const;
  /// Whether the rate lets a frame pass.
  bool mayPass(Clock::time_point pNow) const { return fPace.fit(pNow) <= pNow; }

  /// The newest frame of each camera, once each. kFrame when pFrames has one of each, or with
  /// pIsPartial of any; otherwise none counts as given. Without pTargets the pixels are where they
  /// are.
  Result take(Pixels pPixels, bool pIsPartial, std::span<const FrameTarget> pTargets,
              std::span<Frame> pFrames);
  /// The newest converted frame of a stream of one camera. It does not count as given.
  Result fetch(const FrameTarget& pTarget, Frame& pFrame);
  /// That it is given now. False when another one that is no older was.
  bool countFetched(const Frame& pFrame);
  /// Whether its client asks for every frame: the last one that was given followed the one before.
  bool keepsUp() const { return fKeepsUp; }
  void setBehind() { fKeepsUp = false; }
  /// Whether a frame of its first camera is what a request would get now.
  bool isNext(const Frame& pFrame) const;

  /// What it takes of its connection's limits is free again, though tasks may still share it.
  void returnShare();

  /// Whether it is closed, or its subscriber is gone.
  bool hasEnded() const { return fHasEnded || fSetup.subscription->isOver(); }
  void setEnded() { fHasEnded = true; }

  void countTimeOut() { fTimedOut.fetch_add(1, std::memory_order_relaxed); }

  StreamStatistics statistics() const;
  /// Of what was given last; 0 before the first.
  std::uint64_t frameNumber(std::size_t pIndex) const { return fMarks[pIndex].given.load(); }

  /// Called at each event, for threads that wait for frames themselves.
  OXWakeup& wakeup() { return fWakeup; }
  StreamLine& line() { return fLine; }

 private:
  struct Mark {
    std::atomic<std::uint64_t> given{0};  ///< the number of the last frame
    std::atomic<std::uint64_t> first{0};  ///< since the stream was opened; 0 before
  };

  bool xIsNew(std::size_t pIndex) const;
  std::optional<Clock::time_point> xNextFrame(std::size_t pIndex, Clock::time_point pNow,
                                              const IFrameSource* pSource) const;
  /// Returns how old the frame is.
  std::chrono::microseconds xCount(std::size_t pIndex, const Frame& pFrame);

  detail::Mutex fShareGuard;
  Quota::Share fShare OX_GUARDED_BY(fShareGuard);
  const Setup fSetup;  ///< without its share
  std::vector<Mark> fMarks;
  detail::Mutex fTaking;  ///< held while frames are taken: up to a second
  Pace fPace;
  std::atomic<std::uint64_t> fGiven{0}, fSkipped{0}, fTimedOut{0};
  std::atomic<bool> fHasEnded{false};
  std::atomic<bool> fKeepsUp{false};
  OXDurations fAges;
  OXWakeup fWakeup;
  StreamLine fLine;
};

using StreamPtr = boost::shared_ptr<Stream>;

}  // namespace OX
