/// Who is served when.
#pragma once

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <condition_variable>
#include <functional>
#include <map>
#include <thread>
#include <vector>

#include <oxframework/oxerror.h>
#include <oxframework/oxthreadsafety.h>
#include <oxvision/iframesource.h>
#include "durations.h"
#include "request.h"
#include "stream.h"

namespace OX {

class OXBroker;

/// Brings frames to those who wait for them. A request of a stream that has a new frame is answered
/// on the thread that asks; one that waits costs no thread, and is served by a task of the broker
/// when the device says that there is a frame. Streams of the same formats have one task together,
/// so that the first converts and the others share what it made; those of other formats are served
/// at the same time.
///
/// What time alone brings has one thread, which sleeps otherwise: time limits, the moment at which
/// a rate lets a frame pass, the next step of a replay.
///
/// For a client of shared memory that keeps up with its camera and has no request waiting, a frame
/// is brought to its slot when it comes. One such frame that is not asked for ends that, until the
/// client keeps up again.
///
/// One thread at a time serves a stream, so its requests get their frames in order. fGuard is held
/// for bookkeeping alone: never while a frame is taken or anyone is answered. Thread-safe; lives as
/// long as a task or an event of the device needs it.
class Delivery : public FrameListener, public boost::enable_shared_from_this<Delivery> {
 public:
  using Clock = Stream::Clock;

  /// pEnded is called on a thread of the broker when a subscriber of the device has ended.
  Delivery(boost::weak_ptr<OXBroker> pBroker, boost::weak_ptr<IFrameSource> pSource,
           boost::shared_ptr<StreamDurations> pDurations, std::function<void()> pEnded);
  ~Delivery() override;
  Delivery(const Delivery&) = delete;
  Delivery& operator=(const Delivery&) = delete;

  /// What the requests of a stream that ends are answered with.
  using Farewell = std::function<void(Receiver&)>;

  /// From now on the stream is told of frames. pIsShared: one task serves it with others.
  void add(const StreamPtr& pStream, bool pIsShared);
  /// Answers all requests, and those to come.
  void end(const StreamPtr& pStream, const Farewell& pFarewell);
  /// Ends all streams; nothing is posted any more.
  void stop(const Farewell& pFarewell);

  /// Appends a request. May answer it on this thread.
  void ask(const StreamPtr& pStream, Request pRequest);
  /// A request that could not be prepared can be now.
  void noteRoom(const StreamPtr& pStream);
  /// Drops the requests of those who no longer wait.
  void dropLeft(const StreamPtr& pStream);

  void onFrame(int pCamera) override;
  void onSubscriberEnded() override;

 private:
  friend class StreamProbe;
  using GroupPtr = boost::shared_ptr<StreamGroup>;
  struct Work;

  // With the lock: what is to be done.
  GroupPtr xGroupOf(const Stream& pStream) OX_REQUIRES(fGuard);
  bool xMayServe(Stream& pStream, Clock::time_point pNow, const Work& pWork) const
      OX_REQUIRES(fGuard);
  void xExamine(const StreamPtr& pStream, Clock::time_point pNow, Work& pWork) OX_REQUIRES(fGuard);
  void xTryExamine(const StreamPtr& pStream, Clock::time_point pNow, Work& pWork)
      OX_REQUIRES(fGuard);
  void xQueue(const StreamPtr& pStream, Work& pWork) OX_REQUIRES(fGuard);
  bool xMayFetch(Stream& pStream, Clock::time_point pNow, const Work& pWork) const
      OX_REQUIRES(fGuard);
  void xDropAhead(Stream& pStream) OX_REQUIRES(fGuard);
  void xDropOutdated(Stream& pStream) OX_REQUIRES(fGuard);
  template <typename Predicate>
  void xTake(Stream& pStream, std::vector<Request>& pTaken, Predicate pIsTaken) OX_REQUIRES(fGuard);
  void xTakeExpired(const StreamPtr& pStream, Clock::time_point pBefore, Work& pWork)
      OX_REQUIRES(fGuard);
  void xWakeFor(Stream& pStream, Clock::time_point pNow, const Work& pWork) OX_REQUIRES(fGuard);
  void xWakeAt(Clock::time_point pMoment) OX_REQUIRES(fGuard);
  void xStartTimer() OX_REQUIRES(fGuard);

  // Without.
  void xDo(Work& pWork);
  bool xTryPostEnd();
  void xPost(const GroupPtr& pGroup);
  bool xTryPost(const GroupPtr& pGroup);
  void xRun(const GroupPtr& pGroup);
  void xServe(const StreamPtr& pStream);
  bool xHasServed(const StreamPtr& pStream);
  bool xServeFirst(const StreamPtr& pStream);
  bool xFetchAhead(const StreamPtr& pStream);
  void xBidFarewell(const StreamPtr& pStream, Request& pRequest);
  bool xGiveAhead(const StreamPtr& pStream, Request& pRequest, AheadFrame& pAhead);
  bool xGive(const StreamPtr& pStream, Request& pRequest, std::span<const FrameTarget> pTargets);
  bool xIsReady(const StreamPtr& pStream, Request& pRequest);
  void xPutBack(const StreamPtr& pStream, Request&& pRequest, Clock::time_point pNotBefore);
  void xRunTimer();
  void xTick();

  const boost::weak_ptr<OXBroker> fBroker;
  const boost::weak_ptr<IFrameSource> fSource;
  const boost::shared_ptr<StreamDurations> fDurations;
  const std::function<void()> fEnded;

  detail::Mutex fGuard;
  std::vector<StreamPtr> fStreams OX_GUARDED_BY(fGuard);  ///< those that have not ended
  std::map<std::vector<int>, boost::weak_ptr<StreamGroup>> fGroups OX_GUARDED_BY(fGuard);
  Clock::time_point fWakeMoment OX_GUARDED_BY(fGuard) = Clock::time_point::max();
  bool fIsStopped OX_GUARDED_BY(fGuard) = false;
  bool fEndIsPosted OX_GUARDED_BY(fGuard) = false;
  bool fEndIsPending OX_GUARDED_BY(fGuard) = false;  ///< it could not be posted
  std::condition_variable fTimerWake;
  std::thread fTimer OX_GUARDED_BY(fGuard);
};

}  // namespace OX
