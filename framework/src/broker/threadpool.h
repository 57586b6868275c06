/// The threads of a broker.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace OX {

/// Threads are started on demand and end when they have been idle for a while. A thread of somebody
/// else can run a task in their place. Thread-safe.
class OXThreadPool {
 public:
  using Task = std::function<void()>;

  /// Throws OXError when pMaxThreads is less than 1.
  explicit OXThreadPool(int pMaxThreads,
                        std::chrono::milliseconds pIdleTime = std::chrono::seconds(10));
  /// Stops without waiting: a task that is running finishes, and its thread ends after it.
  ~OXThreadPool();
  OXThreadPool(const OXThreadPool&) = delete;
  OXThreadPool& operator=(const OXThreadPool&) = delete;

  /// Tasks start in order, each at once unless as many as pMaxThreads run. What a task throws is
  /// logged. False when the task was dropped: after stop(), or when no thread could be started.
  bool post(Task pTask);
  /// Runs a task on the calling thread, which counts as one of the pool's meanwhile. False, and
  /// nothing was run, when it could not start at once: then post() it.
  bool tryRun(const Task& pTask);

  /// Refuses further tasks and waits until the queued ones are done and the threads have ended, for
  /// at most pLimit; then drops the tasks that have not started and returns false.
  /// A task may call it, which is then not waited for.
  bool stop(std::chrono::milliseconds pLimit);

  /// The number of threads, idle ones included.
  int getThreadCount() const;

 private:
  // Shared with the threads, since one that is stuck in its task may outlive the pool.
  struct State;
  static void xRun(const std::shared_ptr<State>& pState);

  std::shared_ptr<State> fState;
};

}  // namespace OX
