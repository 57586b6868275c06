// Threads are started on demand: a task that finds no idle thread gets one of its own until the
// limit, so a call that waits never keeps another from starting. The threads are detached and share
// the state, since one that is stuck in its task may outlive the pool.
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

  /// The state of the pool that the calling thread belongs to.
  static thread_local const State* current;

  const int maxThreads;
  const std::chrono::milliseconds idleTime;
  detail::Mutex guard;
  std::condition_variable work;   ///< a task was queued, or the pool is stopping
  std::condition_variable ended;  ///< a thread has ended
  std::deque<Task> queue OX_GUARDED_BY(guard);
  int threads OX_GUARDED_BY(guard) = 0;
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

bool OXThreadPool::post(Task pTask) {
  std::string failure;
  {
    const detail::MutexLock hold(fState->guard);
    if (fState->stopping) return false;
    fState->queue.push_back(std::move(pTask));
    // Each queued task counts on one idle thread, including those that are woken and still on their
    // way: an idle thread that another task counts on must not be counted again.
    const auto idle = static_cast<std::size_t>(fState->idle);
    if (idle >= fState->queue.size() || fState->threads >= fState->maxThreads) {
      fState->work.notify_one();
      return true;
    }
    try {
      std::thread(&OXThreadPool::xRun, fState).detach();
      ++fState->threads;
      return true;
    } catch (const std::exception& error) {  // no thread or no memory
      failure = error.what();
    }
    // A thread that exists will take the task later; without one it would never run.
    if (fState->threads > 0) return true;
    pTask = std::move(fState->queue.back());
    fState->queue.pop_back();
  }
  report(ki::log::kError, "A task was dropped because no thread could be started: " + failure);
  return false;
}

void OXThreadPool::xRun(const std::shared_ptr<State>& pState) {
  State::current = pState.get();
  detail::MutexLock hold(pState->guard);
  for (;;) {
    ++pState->idle;
    pState->work.wait_for(hold.native(), pState->idleTime, [&]() OX_REQUIRES(pState->guard) {
      return !pState->queue.empty() || pState->stopping;
    });
    --pState->idle;
    if (pState->queue.empty()) break;
    Task task = std::move(pState->queue.front());
    pState->queue.pop_front();
    hold.unlock();
    runTask(task);
    task = nullptr;  // destroys what it holds, which must not happen under the lock
    hold.lock();
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
      hold.native(), pLimit, [&]() OX_REQUIRES(fState->guard) { return fState->threads <= self; });
  dropped.swap(fState->queue);
  hold.unlock();
  return ended;
}

int OXThreadPool::getThreadCount() const {
  const detail::MutexLock hold(fState->guard);
  return fState->threads;
}

}  // namespace OX
