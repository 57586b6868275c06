/// The threads of a broker.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace OX {

/// Threads that come with need and go when they have been idle for a while. Thread-safe.
class OXThreadPool {
 public:
  using Task = std::function<void()>;

  /// Throws OXError when pMaxThreads is less than 1.
  explicit OXThreadPool(int pMaxThreads,
                        std::chrono::milliseconds pIdleTime = std::chrono::seconds(10));
  /// Stops without waiting: a task that still runs goes on and its thread ends with it.
  ~OXThreadPool();
  OXThreadPool(const OXThreadPool&) = delete;
  OXThreadPool& operator=(const OXThreadPool&) = delete;

  /// Tasks start in their order, each at once unless pMaxThreads of them run. What a task throws
  /// is logged. False when it was dropped: after stop(), or when no thread could be had at all.
  bool post(Task pTask);

  /// Refuses further tasks and waits until those that it has are done and the threads have ended,
  /// but no longer than pLimit; then drops the tasks that have not started and gives false.
  /// A thread of the pool may call it: it doesn't wait for itself.
  bool stop(std::chrono::milliseconds pLimit);

  /// Threads there are now, idle ones included.
  int getThreadCount() const;

 private:
  // Shared with the threads, since one that is stuck in its task may outlive the pool.
  struct State;
  static void xRun(const std::shared_ptr<State>& pState);

  std::shared_ptr<State> fState;
};

}  // namespace OX
