// Hands each record to the default writer and to all sinks under one lock, so that they see records
// in one order and sinks need no lock of their own. The level filters for the writer only: a sink
// that counts or forwards records must see all of them.
//
// The writer works on a thread of its own, so the end of the process waits for it, but not for
// long: a standard error that nobody reads must not keep a process from ending.
#include <oxframework/oxlog.h>

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <exception>
#include <utility>
#include <vector>

#include <oxframework/oxthreadsafety.h>
#include "logwriter.h"

namespace ki::log {
namespace {

constexpr std::chrono::milliseconds kEndWait(1000);
constexpr std::chrono::milliseconds kForkWait(200);

/// Null until the first record. Apart from the registry, since the end of a process may find the
/// registry locked.
std::atomic<LogWriter*> gWriter{nullptr};

bool awaitWritten() noexcept {
  const LogWriter* const writer = gWriter.load();
  return !writer || writer->awaitWritten(kEndWait);
}

/// After all destructors of a program's own static objects, which may log: this library is
/// finalized after what depends on it.
[[gnu::destructor]] void onExit() { awaitWritten(); }

/// abort() in this process, or the signal from another one.
void onAbort(int) {
  const int before = errno;
  awaitWritten();
  ::signal(SIGABRT, SIG_DFL);
  // Blocked while its handler runs, so it takes effect when this returns: the dump of the process
  // shows the thread that called abort().
  ::raise(SIGABRT);
  errno = before;
}

/// In place of the handler of the C++ library, which prints to standard error first and would wait
/// there without end.
[[noreturn]] void onTerminate() {
  if (awaitWritten()) __gnu_cxx::__verbose_terminate_handler();
  ::signal(SIGABRT, SIG_DFL);  // it has waited already
  std::abort();
}

/// Handlers that the program has set before are left alone.
void watchEnds() {
  struct sigaction present {};
  if (::sigaction(SIGABRT, nullptr, &present) == 0 && !(present.sa_flags & SA_SIGINFO) &&
      present.sa_handler == SIG_DFL)
    ::signal(SIGABRT, onAbort);
  if (std::get_terminate() == __gnu_cxx::__verbose_terminate_handler)
    std::set_terminate(onTerminate);
}

struct SinkRegistry {
  OX::detail::Mutex guard;
  std::vector<boost::shared_ptr<Sink>> sinks OX_GUARDED_BY(guard);
  std::atomic<int> level{kInfo};
};

SinkRegistry& registry();

// A forked child has no writer's thread, and the records that are queued are its parent's: it gets
// a writer of its own, and a lock that no thread of the parent holds. The C library's lock of the
// time zone is not among those that it frees in a child: the parent's writer must not be converting
// a time at that moment. One that waits for a reader does not hold it, hence the bound.
void beforeFork() OX_NO_THREAD_SAFETY_ANALYSIS {
  registry().guard.lock();
  if (const LogWriter* const writer = gWriter) writer->awaitWritten(kForkWait);
}
void afterForkInParent() OX_NO_THREAD_SAFETY_ANALYSIS { registry().guard.unlock(); }
void afterForkInChild() OX_NO_THREAD_SAFETY_ANALYSIS {
  // The old one is left as it is: the thread that it waits for does not exist here.
  gWriter = new LogWriter(STDERR_FILENO);
  registry().guard.unlock();
}

// Never destroyed: modules may log until the very end of the process.
SinkRegistry& registry() {
  static auto* const instance = [] {
    auto* const made = new SinkRegistry;
    gWriter = new LogWriter(STDERR_FILENO);
    ::pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
    watchEnds();
    return made;
  }();
  return *instance;
}

std::string lineOf(const std::string& pCategory, const std::string& pFunction,
                   const std::string& pMessage) {
  std::string line;
  line.reserve(pCategory.size() + pFunction.size() + pMessage.size() + 3);
  line.append(pCategory).append(" ").append(pFunction).append(": ").append(pMessage);
  return line;
}

}  // namespace

Sink::~Sink() = default;

void addSink(const boost::shared_ptr<Sink>& pSink) {
  const OX::detail::MutexLock guard(registry().guard);
  registry().sinks.push_back(pSink);
}

void removeSink(const boost::shared_ptr<Sink>& pSink) {
  const OX::detail::MutexLock guard(registry().guard);
  std::erase(registry().sinks, pSink);
}

void setLevel(int pLevel) { registry().level = pLevel; }

void log(int pLevel, const std::string& pCategory, const std::string& pMessage,
         const std::string& pFile, const std::string& pFunction, int pLine) {
  SinkRegistry& all = registry();
  const bool shown = pLevel <= all.level.load();
  std::string line = shown ? lineOf(pCategory, pFunction, pMessage) : std::string();
  // Sinks are called under the lock, so that after removeSink() no call to the sink is under way.
  const OX::detail::MutexLock guard(all.guard);
  if (shown) gWriter.load()->write(pLevel, std::move(line));
  if (all.sinks.empty()) return;
  const Record record{pLevel, pCategory, pMessage, pFile, pFunction, pLine};
  for (const auto& sink : all.sinks) sink->write(record);
}

LogStream::LogStream(int pLevel, const std::string& pCategory, const std::string& pFile,
                     const std::string& pFunction, int pLine)
    : fLevel(pLevel), fCategory(pCategory), fFile(pFile), fFunction(pFunction), fLine(pLine) {}

// A record that cannot be made or written must not end the process, which a throwing destructor
// would.
LogStream::~LogStream() {
  try {
    log(fLevel, fCategory, str(), fFile, fFunction, fLine);
  } catch (...) {
  }
}

}  // namespace ki::log
