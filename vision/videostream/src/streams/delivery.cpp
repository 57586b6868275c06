// A request that is being served is out of its line, and so is the business of one thread alone.
// The others only leave word there that something has happened (again), which that thread looks at
// before it goes. Whatever has no event that ends it has a moment at which the timer looks.
#include "delivery.h"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <iterator>
#include <new>
#include <utility>

#include <oxframework/oxbroker.h>
#include <oxframework/oxlog.h>
#include <oxvalue/detail/oxfunctor.h>
#include "memory/aheadframe.h"

namespace OX {
namespace {

// Before the device is asked again for what it had not, though it was due, or failed to deliver.
// Each failure leaves a record; a newer frame may fare better, and ends the pause.
constexpr std::chrono::milliseconds kShortPause(5);
constexpr std::chrono::milliseconds kFailurePause(250);
// Before the broker is asked again for a thread, or the system for memory.
constexpr std::chrono::milliseconds kPostPause(100);

// For a task that has been posted to run, before what it should have served gets nothing. The
// threads of a broker may all be taken by calls that wait for just that.
constexpr std::chrono::seconds kTaskLimit(1);

Stream::Clock::time_point pauseAfter(Stream::Result pResult) {
  return Stream::Clock::now() +
         (pResult == Stream::Result::kNothingNew ? kShortPause : kFailurePause);
}

}  // namespace

/// What is done without the lock, also by the destructor. Keeps the device meanwhile: it must not
/// end under the lock, which its events take.
struct Delivery::Work {
  explicit Work(const Delivery& pDelivery) : source(pDelivery.fSource.lock()) {}
  const boost::shared_ptr<IFrameSource> source;
  std::vector<GroupPtr> toPost{};
  std::vector<Request> expired{};
  std::vector<Request> dropped{};
  std::vector<StreamPtr> withRoom{};  ///< whose requests have put slots back
};

Delivery::Delivery(boost::weak_ptr<OXBroker> pBroker, boost::weak_ptr<IFrameSource> pSource,
                   boost::shared_ptr<StreamDurations> pDurations, std::function<void()> pEnded)
    : fBroker(std::move(pBroker)),
      fSource(std::move(pSource)),
      fDurations(std::move(pDurations)),
      fEnded(std::move(pEnded)) {}

Delivery::~Delivery() {
  stop([](Receiver& pReceiver) { pReceiver.giveNothing(); });
}

// ---- streams ----

Delivery::GroupPtr Delivery::xGroupOf(const Stream& pStream) {
  std::erase_if(fGroups, [](const auto& pEntry) { return pEntry.second.expired(); });
  std::vector<int> key;
  for (const FrameFormat& format : pStream.formats())
    key.insert(key.end(), {format.camera, format.resolution, format.colorSpace});
  boost::weak_ptr<StreamGroup>& known = fGroups[key];
  GroupPtr group = known.lock();
  if (!group) known = group = boost::make_shared<StreamGroup>();
  return group;
}

void Delivery::add(const StreamPtr& pStream, bool pIsShared) {
  const detail::MutexLock hold(fGuard);
  pStream->line().group = pIsShared ? xGroupOf(*pStream) : boost::make_shared<StreamGroup>();
  fStreams.push_back(pStream);
}

void Delivery::end(const StreamPtr& pStream, const Farewell& pFarewell) {
  std::deque<Request> requests;
  std::unique_ptr<AheadFrame> ahead;
  {
    const detail::MutexLock hold(fGuard);
    StreamLine& line = pStream->line();
    if (line.farewell) return;
    line.farewell = pFarewell;
    requests.swap(line.requests);
    ahead.swap(line.ahead);
    std::erase(fStreams, pStream);
    pStream->setEnded();
  }
  pStream->wakeup().notify();
  for (Request& request : requests) pFarewell(*request.receiver);
}

void Delivery::stop(const Farewell& pFarewell) {
  std::vector<StreamPtr> streams;
  std::thread timer;
  {
    const detail::MutexLock hold(fGuard);
    fIsStopped = true;
    streams = fStreams;
    timer.swap(fTimer);
    fTimerWake.notify_all();
  }
  if (timer.joinable()) timer.join();
  for (const StreamPtr& stream : streams) end(stream, pFarewell);
}

// ---- requests ----

void Delivery::ask(const StreamPtr& pStream, Request pRequest) {
  Farewell farewell;
  Request refused;
  {
    const detail::MutexLock hold(fGuard);
    StreamLine& line = pStream->line();
    farewell = line.farewell;
    if (farewell) {
      refused = std::move(pRequest);
    } else {
      xStartTimer();
      line.requests.push_back(std::move(pRequest));
    }
  }
  if (farewell)
    farewell(*refused.receiver);
  else
    xServe(pStream);
}

void Delivery::noteRoom(const StreamPtr& pStream) {
  Work work(*this);
  {
    const detail::MutexLock hold(fGuard);
    for (Request& request : pStream->line().requests) request.awaitsRoom = false;
    xExamine(pStream, Clock::now(), work);
  }
  xDo(work);
}

void Delivery::dropLeft(const StreamPtr& pStream) {
  Work work(*this);
  {
    const detail::MutexLock hold(fGuard);
    xTake(*pStream, work.dropped,
          [](const Request& pRequest) { return pRequest.receiver->isOver(); });
    // Those who came later may have waited for them.
    xExamine(pStream, Clock::now(), work);
  }
  xDo(work);
}

// ---- events ----

void Delivery::onFrame(int pCamera) {
  Work work(*this);
  {
    const detail::MutexLock hold(fGuard);
    if (fIsStopped) return;
    const Clock::time_point now = Clock::now();
    for (const StreamPtr& stream : fStreams) {
      if (!stream->hasCamera(pCamera)) continue;
      stream->note(pCamera);
      stream->wakeup().notify();
      StreamLine& line = stream->line();
      line.notBefore = {};
      if (line.requests.empty() && !line.isServed && !stream->segment()) continue;
      xTryExamine(stream, now, work);
      line.isWoken |= line.isDue && !line.requests.empty() && stream->hasAnyNew();
    }
  }
  xDo(work);
}

void Delivery::onSubscriberEnded() {
  {
    const detail::MutexLock hold(fGuard);
    if (fIsStopped || fEndIsPosted) return;
    fEndIsPosted = true;
  }
  if (xTryPostEnd()) return;
  const detail::MutexLock hold(fGuard);
  fEndIsPosted = false;
  fEndIsPending = true;
  xWakeAt(Clock::now() + kPostPause);
}

bool Delivery::xTryPostEnd() try {
  const boost::shared_ptr<OXBroker> broker = fBroker.lock();
  return broker && broker->post([self = shared_from_this()] {
    {
      const detail::MutexLock hold(self->fGuard);
      self->fEndIsPosted = false;
    }
    self->fEnded();
  });
} catch (const std::bad_alloc&) {
  return false;
}

// ---- what is to be done: with the lock ----

bool Delivery::xMayServe(Stream& pStream, Clock::time_point pNow, const Work& pWork) const {
  const StreamLine& line = pStream.line();
  if (line.requests.empty()) return false;
  const Request& first = line.requests.front();
  if (!first.mayBeServed()) return false;
  // Of several cameras, when the time is over, those that have something.
  if (first.deadline <= pNow && pStream.isMulti() && pStream.hasAnyNew() && pStream.mayPass(pNow))
    return true;
  if (line.notBefore > pNow) return false;
  const auto chance = pStream.nextChance(pNow, pWork.source.get());
  return chance && *chance <= pNow;
}

bool Delivery::xMayFetch(Stream& pStream, Clock::time_point pNow, const Work& pWork) const {
  const StreamLine& line = pStream.line();
  if (!pStream.segment() || pStream.isMulti() || !pStream.keepsUp() || line.farewell) return false;
  if (!line.requests.empty() || line.ahead || line.notBefore > pNow) return false;
  const auto chance = pStream.nextChance(pNow, pWork.source.get());
  return pStream.hasAnyNew() && chance && *chance <= pNow;
}

/// At once, also with the lock: it has a slot and nothing of the device, and a request may wait for
/// the slot.
void Delivery::xDropAhead(Stream& pStream) {
  StreamLine& line = pStream.line();
  if (!line.ahead) return;
  line.ahead.reset();
  for (Request& request : line.requests) request.awaitsRoom = false;
}

/// Who did not ask for a frame while it was the newest may not ask for the next one either.
void Delivery::xDropOutdated(Stream& pStream) {
  const StreamLine& line = pStream.line();
  if (!line.ahead || pStream.isNext(line.ahead->frame())) return;
  pStream.setBehind();
  xDropAhead(pStream);
}

void Delivery::xExamine(const StreamPtr& pStream, Clock::time_point pNow, Work& pWork) {
  StreamLine& line = pStream->line();
  if (line.isServed) {
    line.again = true;
    return;
  }
  xDropOutdated(*pStream);
  if (line.isDue)
    xTakeExpired(pStream, pNow - kTaskLimit, pWork);
  else if (xMayServe(*pStream, pNow, pWork) || xMayFetch(*pStream, pNow, pWork))
    xQueue(pStream, pWork);
  else
    xTakeExpired(pStream, pNow, pWork);
  xWakeFor(*pStream, pNow, pWork);
}

/// For those who have others to look at too: without memory this one waits for its next event.
void Delivery::xTryExamine(const StreamPtr& pStream, Clock::time_point pNow, Work& pWork) {
  try {
    xExamine(pStream, pNow, pWork);
  } catch (const std::bad_alloc&) {
    xWakeAt(pNow + kPostPause);
  }
}

/// All or nothing: a group that counts as posted and is not would never be served.
void Delivery::xQueue(const StreamPtr& pStream, Work& pWork) {
  StreamLine& line = pStream->line();
  pWork.toPost.reserve(pWork.toPost.size() + 1);
  line.group->due.push_back(pStream);
  line.isDue = true;
  if (!std::exchange(line.group->isPosted, true)) pWork.toPost.push_back(line.group);
}

template <typename Predicate>
void Delivery::xTake(Stream& pStream, std::vector<Request>& pTaken, Predicate pIsTaken) {
  std::deque<Request>& requests = pStream.line().requests;
  const auto count = std::count_if(requests.begin(), requests.end(), pIsTaken);
  if (count == 0) return;
  pTaken.reserve(pTaken.size() + static_cast<std::size_t>(count));
  const auto taken = std::stable_partition(requests.begin(), requests.end(),
                                           [&](const Request& pOne) { return !pIsTaken(pOne); });
  std::move(taken, requests.end(), std::back_inserter(pTaken));
  requests.erase(taken, requests.end());
}

void Delivery::xTakeExpired(const StreamPtr& pStream, Clock::time_point pBefore, Work& pWork) {
  // Before anything is taken, which must then be answered.
  if (pStream->segment()) pWork.withRoom.reserve(pWork.withRoom.size() + 1);
  const std::size_t before = pWork.expired.size();
  xTake(*pStream, pWork.expired,
        [&](const Request& pRequest) { return pRequest.deadline <= pBefore; });
  for (std::size_t i = before; i < pWork.expired.size(); ++i) pStream->countTimeOut();
  if (pStream->segment() && pWork.expired.size() > before) pWork.withRoom.push_back(pStream);
}

/// A stream that is being served is looked at after that.
void Delivery::xWakeFor(Stream& pStream, Clock::time_point pNow, const Work& pWork) {
  const StreamLine& line = pStream.line();
  if (line.requests.empty() || line.isServed) return;
  for (const Request& request : line.requests)
    if (request.deadline != Clock::time_point::max())
      xWakeAt(request.deadline + (line.isDue ? kTaskLimit : std::chrono::seconds(0)));
  if (line.isDue || !line.requests.front().mayBeServed()) return;
  if (const auto chance = pStream.nextChance(pNow, pWork.source.get()))
    xWakeAt(std::max(*chance, line.notBefore));
}

// ---- the timer ----

void Delivery::xStartTimer() {
  if (!fTimer.joinable() && !fIsStopped) fTimer = std::thread([this] { xRunTimer(); });
}

void Delivery::xWakeAt(Clock::time_point pMoment) {
  if (pMoment >= fWakeMoment) return;
  fWakeMoment = pMoment;
  fTimerWake.notify_all();
}

void Delivery::xRunTimer() {
  detail::MutexLock hold(fGuard);
  while (!fIsStopped) {
    const Clock::time_point now = Clock::now();
    if (fWakeMoment == Clock::time_point::max()) {
      fTimerWake.wait(hold.native());
    } else if (fWakeMoment > now) {
      fTimerWake.wait_until(hold.native(), fWakeMoment);
    } else {
      hold.unlock();
      xTick();
      hold.lock();
    }
  }
}

void Delivery::xTick() {
  Work work(*this);
  bool endIsPending = false;
  {
    const detail::MutexLock hold(fGuard);
    fWakeMoment = Clock::time_point::max();
    endIsPending = std::exchange(fEndIsPending, false);
    const Clock::time_point now = Clock::now();
    for (const StreamPtr& stream : fStreams) xTryExamine(stream, now, work);
  }
  xDo(work);
  if (endIsPending) onSubscriberEnded();
}

// ---- doing it: without the lock ----

void Delivery::xDo(Work& pWork) {
  for (const Request& request : pWork.expired) request.receiver->giveNothing();
  for (const GroupPtr& group : pWork.toPost) xPost(group);
  // A request that waited for a slot may have one now.
  const std::vector<StreamPtr> withRoom = std::exchange(pWork.withRoom, {});
  for (const StreamPtr& stream : withRoom) noteRoom(stream);
}

bool Delivery::xTryPost(const GroupPtr& pGroup) try {
  const boost::shared_ptr<OXBroker> broker = fBroker.lock();
  const boost::shared_ptr<Delivery> self = weak_from_this().lock();
  return broker && self && broker->post([self, pGroup] { self->xRun(pGroup); });
} catch (const std::bad_alloc&) {
  return false;
}

void Delivery::xPost(const GroupPtr& pGroup) {
  if (xTryPost(pGroup)) return;
  // The broker ends, or the system is short of threads.
  std::vector<StreamPtr> due;
  const detail::MutexLock hold(fGuard);
  pGroup->isPosted = false;
  due.swap(pGroup->due);
  const Clock::time_point again = Clock::now() + kPostPause;
  for (const StreamPtr& stream : due) {
    stream->line().isDue = stream->line().isWoken = false;
    stream->line().notBefore = again;
  }
  xWakeAt(again);
}

void Delivery::xRun(const GroupPtr& pGroup) {
  std::vector<StreamPtr> due;
  {
    const detail::MutexLock hold(fGuard);
    pGroup->isPosted = false;
    due.swap(pGroup->due);
    for (const StreamPtr& stream : due) stream->line().isDue = false;
  }
  for (const StreamPtr& stream : due) try {
      xServe(stream);
    } catch (const std::exception& error) {  // the others must not wait for the next event
      ki::log::log(ki::log::kError, "vision.oxvideostream",
                   "Stream \"" + stream->id() + "\" could not be served: " + error.what(), "",
                   "deliver", 0);
    }
}

void Delivery::xServe(const StreamPtr& pStream) {
  {
    const detail::MutexLock hold(fGuard);
    StreamLine& line = pStream->line();
    if (line.isServed) {
      line.again = true;
      return;
    }
    line.isServed = true;
    if (std::exchange(line.isWoken, false))
      if (const std::int64_t age = pStream->subscription().newestAgeUs(0); age >= 0)
        fDurations->wake.add(std::chrono::microseconds(age));
  }
  try {
    do
      while (xServeFirst(pStream) || xFetchAhead(pStream)) continue;
    while (!xHasServed(pStream));
  } catch (...) {  // no memory: others may serve it, and its requests end with their time
    const detail::MutexLock hold(fGuard);
    pStream->line().isServed = false;
    xWakeAt(Clock::now() + kPostPause);
    throw;
  }
}

/// False when something has happened since the last look.
bool Delivery::xHasServed(const StreamPtr& pStream) {
  Work work(*this);
  {
    const detail::MutexLock hold(fGuard);
    StreamLine& line = pStream->line();
    if (std::exchange(line.again, false)) return false;
    const Clock::time_point now = Clock::now();
    xTakeExpired(pStream, now, work);
    line.isServed = false;
    xWakeFor(*pStream, now, work);
  }
  xDo(work);
  return true;
}

/// Whether there may be more to do.
bool Delivery::xServeFirst(const StreamPtr& pStream) {
  Request request;
  std::vector<FrameTarget> targets;
  std::unique_ptr<AheadFrame> ahead;
  {
    Work work(*this);
    const detail::MutexLock hold(fGuard);
    StreamLine& line = pStream->line();
    while (!line.requests.empty() && line.requests.front().receiver->isOver()) {
      work.dropped.push_back(std::move(line.requests.front()));
      line.requests.pop_front();
    }
    if (!xMayServe(*pStream, Clock::now(), work)) return false;
    xDropOutdated(*pStream);
    if (line.ahead && line.requests.front().receiver->adopt(*line.ahead)) {
      ahead = std::move(line.ahead);
    } else {
      xDropAhead(*pStream);  // a raw frame is wanted, which will be the newest
      if (!line.requests.front().receiver->prepare(targets, pStream->cameras())) {
        line.requests.front().awaitsRoom = true;
        return false;
      }
    }
    request = std::move(line.requests.front());
    line.requests.pop_front();
  }
  try {
    return ahead ? xGiveAhead(pStream, request, *ahead) : xGive(pStream, request, targets);
  } catch (...) {
    if (request.receiver) request.receiver->fail(detail::currentError());
    return true;
  }
}

bool Delivery::xGive(const StreamPtr& pStream, Request& pRequest,
                     std::span<const FrameTarget> pTargets) {
  if (!xIsReady(pStream, pRequest)) {
    xPutBack(pStream, std::move(pRequest), {});
    return false;
  }
  std::vector<Frame> frames(pStream->cameras());
  const bool isOutOfTime = pRequest.deadline <= Clock::now();
  const Stream::Result result =
      pStream->take(pRequest.pixels, isOutOfTime && pStream->isMulti(), pTargets, frames);
  switch (result) {
    case Stream::Result::kFrame:
      for (const Frame& frame : frames)
        if (!frame) {
          pStream->countTimeOut();
          break;
        }
      pRequest.receiver->give(frames);
      return true;
    case Stream::Result::kOver:
      xBidFarewell(pStream, pRequest);
      return true;
    case Stream::Result::kNothingNew:
    case Stream::Result::kFailed:
      break;
  }
  xPutBack(pStream, std::move(pRequest), pauseAfter(result));
  return false;
}

/// The stream was closed, or somebody has unsubscribed its subscriber.
void Delivery::xBidFarewell(const StreamPtr& pStream, Request& pRequest) {
  Farewell farewell;
  {
    const detail::MutexLock hold(fGuard);
    farewell = pStream->line().farewell;
  }
  if (farewell)
    farewell(*pRequest.receiver);
  else
    pRequest.receiver->fail(Stream::overError(pStream->id()));
}

/// Whether there may be more to do.
bool Delivery::xFetchAhead(const StreamPtr& pStream) {
  std::unique_ptr<AheadFrame> ahead;
  const Work work(*this);
  {
    const detail::MutexLock hold(fGuard);
    if (!xMayFetch(*pStream, Clock::now(), work)) return false;
    const std::vector<Slots::Slot> slots = pStream->segment()->slots().take(1);
    if (slots.empty()) return false;
    try {
      ahead = std::make_unique<AheadFrame>(pStream->segment(), slots.front());
    } catch (...) {
      pStream->segment()->slots().putBack(slots.front());
      throw;
    }
  }
  const Stream::Result result = pStream->fetch(ahead->target(), ahead->frame());
  const detail::MutexLock hold(fGuard);
  StreamLine& line = pStream->line();
  if (result == Stream::Result::kFrame && !line.farewell)
    line.ahead = std::move(ahead);
  else if (!line.again)  // a newer frame may fare better
    line.notBefore = pauseAfter(result);
  return !line.requests.empty();
}

bool Delivery::xGiveAhead(const StreamPtr& pStream, Request& pRequest, AheadFrame& pAhead) {
  if (pStream->countFetched(pAhead.frame()))
    pRequest.receiver->give({&pAhead.frame(), 1});
  else
    xPutBack(pStream, std::move(pRequest), {});
  return true;
}

bool Delivery::xIsReady(const StreamPtr& pStream, Request& pRequest) {
  if (pRequest.isReady || !pRequest.receiver->mustBeReady()) return true;
  pRequest.isReady = boost::make_shared<std::atomic<bool>>(false);
  pRequest.receiver->whenReady([flag = pRequest.isReady, weak = weak_from_this(),
                                stream = boost::weak_ptr<Stream>(pStream)] {
    *flag = true;
    // On a thread that may work, or within the call below, whose thread looks again.
    const auto self = weak.lock();
    const StreamPtr waiting = stream.lock();
    if (self && waiting) self->xServe(waiting);
  });
  return *pRequest.isReady;
}

void Delivery::xPutBack(const StreamPtr& pStream, Request&& pRequest,
                        Clock::time_point pNotBefore) {
  Farewell farewell;
  Request refused;
  {
    const detail::MutexLock hold(fGuard);
    StreamLine& line = pStream->line();
    farewell = line.farewell;
    // A newer frame may fare better.
    if (!line.again) line.notBefore = pNotBefore;
    if (farewell)
      refused = std::move(pRequest);
    else
      line.requests.push_front(std::move(pRequest));
  }
  if (farewell) farewell(*refused.receiver);
}

}  // namespace OX
