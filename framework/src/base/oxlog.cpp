// Hands each record to all sinks under one lock, so that sinks see records in one order and need no
// lock of their own. The default sink filters by level, not this: a sink that counts or forwards
// records must see all of them.
#include <oxframework/oxlog.h>

#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>

#include <atomic>
#include <vector>

#include <oxframework/oxthreadsafety.h>

namespace ki::log {
namespace {

/// Writes to standard error through spdlog.
class DefaultSink : public Sink {
 public:
  DefaultSink() : fLogger("ox", std::make_shared<spdlog::sinks::stderr_color_sink_mt>()) {
    fLogger.set_level(spdlog::level::trace);
    fLogger.set_pattern("%Y-%m-%d %H:%M:%S.%e %^%l%$ %v");
    // Each record at once: the last ones before a crash are those that are needed.
    fLogger.flush_on(spdlog::level::trace);
  }

  void write(const Record& pRecord) override {
    if (pRecord.level > fLevel.load()) return;
    fLogger.log(xLevel(pRecord.level), "{} {}: {}", pRecord.category, pRecord.function,
                pRecord.message);
  }

  void setLevel(int pLevel) { fLevel.store(pLevel); }

 private:
  static spdlog::level::level_enum xLevel(int pLevel) {
    if (pLevel <= kFatal) return spdlog::level::critical;
    if (pLevel == kError) return spdlog::level::err;
    if (pLevel == kWarning) return spdlog::level::warn;
    return pLevel == kInfo ? spdlog::level::info : spdlog::level::debug;
  }

  spdlog::logger fLogger;
  std::atomic<int> fLevel{kInfo};
};

struct SinkRegistry {
  OX::detail::Mutex guard;
  const boost::shared_ptr<DefaultSink> defaultSink{new DefaultSink};
  std::vector<boost::shared_ptr<Sink>> sinks OX_GUARDED_BY(guard){defaultSink};
};

// Never destroyed: modules may log until the very end of the process.
SinkRegistry& registry() {
  static auto* const instance = new SinkRegistry;
  return *instance;
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

void setLevel(int pLevel) { registry().defaultSink->setLevel(pLevel); }

void log(int pLevel, const std::string& pCategory, const std::string& pMessage,
         const std::string& pFile, const std::string& pFunction, int pLine) {
  const Record record{pLevel, pCategory, pMessage, pFile, pFunction, pLine};
  // Sinks are called under the lock, so that after removeSink() no call to the sink is under way.
  const OX::detail::MutexLock guard(registry().guard);
  for (const auto& sink : registry().sinks) sink->write(record);
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
