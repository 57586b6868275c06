/// Writes records to a file descriptor on a thread of its own, so that no thread that logs waits
/// for a reader: a terminal that was stopped, a pipe that nobody reads, a slow disk.
///
/// The queue is bounded. Records that find it full, or that the system refuses to write, are
/// dropped and counted, and "N records dropped" follows as a record of its own once writing goes
/// on.
#pragma once

#include <spdlog/formatter.h>
#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <oxframework/oxthreadsafety.h>

namespace ki::log {

/// Thread-safe. The records of one thread, and those of any threads that take turns, are written in
/// the order of their write() calls.
class LogWriter {
 public:
  /// What may wait to be written. Up to as much again may be in the hands of the writing thread.
  struct Limits {
    std::size_t records = 4096;
    std::size_t bytes = 1024 * 1024;  ///< a single record may be larger
  };

  /// pFile is borrowed.
  explicit LogWriter(int pFile);
  LogWriter(int pFile, const Limits& pLimits);
  /// Writes what is queued, and waits for that without a limit. The process's own writer is never
  /// destroyed.
  ~LogWriter();
  LogWriter(const LogWriter&) = delete;
  LogWriter& operator=(const LogWriter&) = delete;

  /// Queues a record, never waits for the file. The first record starts the thread.
  void write(int pLevel, std::string&& pText) noexcept OX_EXCLUDES(fGuard);

  /// Waits until all records queued before are written or dropped, at most pLimit. False when some
  /// are not. Safe in a signal handler, and with locks of the log held.
  bool awaitWritten(std::chrono::milliseconds pLimit) const noexcept;

 private:
  struct Line {
    spdlog::log_clock::time_point time;
    int level;
    std::string text;
  };

  void xStart() OX_REQUIRES(fGuard);
  void xRun() noexcept OX_EXCLUDES(fGuard);
  bool xPut(const Line& pLine) noexcept;
  bool xPutCount(std::uint64_t pDropped) noexcept;

  const int fFile;
  const Limits fLimits;
  const bool fColors;
  const std::unique_ptr<spdlog::formatter> fFormatter;  ///< on the thread only

  OX::detail::Mutex fGuard;
  std::condition_variable fFilled;  ///< a record was queued or dropped, or the end has come
  std::vector<Line> fQueue OX_GUARDED_BY(fGuard);
  std::size_t fQueuedBytes OX_GUARDED_BY(fGuard) = 0;
  std::uint64_t fDropped OX_GUARDED_BY(fGuard) = 0;  ///< since the thread last took the queue
  bool fStopping OX_GUARDED_BY(fGuard) = false;
  std::thread fThread OX_GUARDED_BY(fGuard);

  // What a signal handler may read, which may not take the guard.
  std::atomic<std::uint64_t> fReceived{0};  ///< records, also those that were dropped
  std::atomic<std::uint64_t> fDone{0};      ///< of these, no longer queued nor being written
  std::atomic<pid_t> fThreadId{0};
};

}  // namespace ki::log
