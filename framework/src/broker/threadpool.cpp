// Threads are started on demand: a task that finds no idle thread gets one of its own until the
// limit, so a call that waits never keeps another from starting. The threads are detached and share
// the state, since one that is stuck in its task may outlive the pool.
//
// The limit is one of tasks that run. Those on threads of somebody else (guests) count too, so a
// thread of the pool may have to wait though there is a task; the guest that leaves wakes it.
#include "threadpool.h"

#include <condition_variable>
#include <deque>
#include <exception>
#include <string>
#include <thread>
#include <utility>

#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include <oxframework/oxthreadsafety.h>

namespace OX {
namespace {

void report(int pLevel, const std::string& pText) {
  ki::log::log(pLevel, "framework.broker", pText, "", "OXThreadPool", 0);
}

void runTask(const OXThreadPool::Task& pTask) {
  try {
    pTask();
  } catch (const OXError& error) {
    report(ki::log::kError, "A task failed: " + error.toString());
  } catch (const std::exception& error) {
    report(ki::log::kError, std::string("A task failed: ") + error.what());
  } catch (...) {
    report(ki::log::kError, "A task failed with an exception of an unknown type");
  }
}

}  // namespace

struct OXThreadPool::State {
  State(int pMaxThreads, std::chrono::milliseconds pIdleTime)
      : maxThreads(pMaxThreads), idleTime(pIdleTime) {}

  /// The state of the pool whose task the calling thread runs.
  static thread_local const State* current;

  bool mayStart() const OX_REQUIRES(guard) { return !queue.empty() && running < maxThreads; }
  /// Starts a thread for what is queued unless there are enough of them. False when none could be
  /// started and there is none; pFailure says why.
  bool ensureThread(const std::shared_ptr<State>& pThis, std::string& pFailure) OX_REQUIRES(guard);

  const int maxThreads;
  const std::chrono::milliseconds idleTime;
  detail::Mutex guard;
  std::condition_variable work;   ///< a task was queued, or the pool is stopping
  std::condition_variable ended;  ///< a thread has ended
  std::deque<Task> queue OX_GUARDED_BY(guard);
  int threads OX_GUARDED_BY(guard) = 0;
  int running OX_GUARDED_BY(guard) = 0;  ///< tasks, those of guests included
  int guests OX_GUARDED_BY(guard) = 0;
  /// Threads that wait for work, also those woken that have not taken theirs yet.
  int idle OX_GUARDED_BY(guard) = 0;
  bool stopping OX_GUARDED_BY(guard) = false;
};

thread_local const OXThreadPool::State* OXThreadPool::State::current = nullptr;

OXThreadPool::OXThreadPool(int pMaxThreads, std::chrono::milliseconds pIdleTime)
    : fState(std::make_shared<State>(pMaxThreads, pIdleTime)) {
  if (pMaxThreads < 1)
    raiseError("OXBroker", "OXThreadPool",
               "A broker needs 1 thread at least, not " + std::to_string(pMaxThreads));
}

OXThreadPool::~OXThreadPool() { stop(std::chrono::milliseconds(0)); }

bool OXThreadPool::State::ensureThread(const std::shared_ptr<State>& pThis, std::string& pFailure) {
  // Each queued task counts on one idle thread, including those that are woken and still on their
  // way: an idle thread that another task counts on must not be counted again.
  if (static_cast<std::size_t>(idle) >= queue.size() || threads + guests >= maxThreads) {
    work.notify_one();
    return threads + guests > 0;
  }
  try {
    std::thread(&OXThreadPool::xRun, pThis).detach();
    ++threads;
  } catch (const std::exception& error) {  // no thread or no memory
    pFailure = error.what();
  }
  // A thread that exists will take the task later; without one it would never run.
  return threads + guests > 0;
}

bool OXThreadPool::post(Task pTask) {
  std::string failure;
  {
    const detail::MutexLock hold(fState->guard);
    if (fState->stopping) return false;
    fState->queue.push_back(std::move(pTask));
    if (fState->ensureThread(fState, failure)) return true;
    pTask = std::move(fState->queue.back());
    fState->queue.pop_back();
  }
  report(ki::log::kError, "A task was dropped because no thread could be started: " + failure);
  return false;
}

bool OXThreadPool::tryRun(const Task& pTask) {
  const std::shared_ptr<State> state = fState;  // the task may end the pool
  detail::MutexLock hold(state->guard);
  if (state->stopping || !state->queue.empty() || state->running >= state->maxThreads) return false;
  ++state->running;
  ++state->guests;
  const State* const former = std::exchange(State::current, state.get());
  hold.unlock();
  runTask(pTask);
  hold.lock();
  // Without a thread of the pool, what was queued meanwhile has this one alone.
  for (std::string failure; !state->queue.empty();) {
    --state->guests;
    const bool isTaken = state->ensureThread(state, failure);
    ++state->guests;
    if (isTaken) break;
    Task task = std::move(state->queue.front());
    state->queue.pop_front();
    hold.unlock();
    runTask(task);
    task = nullptr;  // destroys what it holds, which must not happen under the lock
    hold.lock();
  }
  State::current = former;
  --state->running;
  --state->guests;
  if (state->stopping) state->ended.notify_all();
  return true;
}

void OXThreadPool::xRun(const std::shared_ptr<State>& pState) {
  State::current = pState.get();
  detail::MutexLock hold(pState->guard);
  for (;;) {
    ++pState->idle;
    pState->work.wait_for(hold.native(), pState->idleTime, [&]() OX_REQUIRES(pState->guard) {
      return pState->mayStart() || (pState->stopping && pState->queue.empty());
    });
    --pState->idle;
    if (pState->queue.empty()) break;
    if (!pState->mayStart()) continue;
    Task task = std::move(pState->queue.front());
    pState->queue.pop_front();
    ++pState->running;
    hold.unlock();
    runTask(task);
    task = nullptr;  // destroys what it holds, which must not happen under the lock
    hold.lock();
    --pState->running;
  }
  --pState->threads;
  pState->ended.notify_all();
}

bool OXThreadPool::stop(std::chrono::milliseconds pLimit) {
  std::deque<Task> dropped;  // destroyed after the lock, since what tasks hold may call the pool
  detail::MutexLock hold(fState->guard);
  fState->stopping = true;
  fState->work.notify_all();
  const int self = State::current == fState.get() ? 1 : 0;
  const bool ended = fState->ended.wait_for(
      hold.native(), pLimit,
      [&]() OX_REQUIRES(fState->guard) { return fState->threads + fState->guests <= self; });
  dropped.swap(fState->queue);
  fState->work.notify_all();
  hold.unlock();
  return ended;
}

int OXThreadPool::getThreadCount() const {
  const detail::MutexLock hold(fState->guard);
  return fState->threads;
}

}  // namespace OX
