/// Records the log while it lives, so that a test can say what was logged. Thread-safe.
#pragma once

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <oxframework/oxlog.h>

namespace OX::test {

/// Takes every record from its construction to its end, and keeps standard error quiet meanwhile.
///
///   CaptureLog log;
///   device.subscribe("", 1, 9, 5);
///   EXPECT_EQ(log.records(2), "subscribe: Name is empty\n");
class CaptureLog {
 public:
  CaptureLog() : fSink(boost::make_shared<RecordingSink>()) {
    ki::log::addSink(fSink);
    ki::log::setLevel(0);
  }
  ~CaptureLog() {
    ki::log::setLevel(ki::log::kInfo);
    ki::log::removeSink(fSink);
  }
  CaptureLog(const CaptureLog&) = delete;
  CaptureLog& operator=(const CaptureLog&) = delete;

  /// The records of one level, oldest first, each as "function: message" and a line end.
  std::string records(int pLevel) const {
    std::string text;
    for (const ki::log::Record& record : all())
      if (record.level == pLevel) text += record.function + ": " + record.message + "\n";
    return text;
  }

  int count(int pLevel) const {
    int number = 0;
    for (const ki::log::Record& record : all()) number += record.level == pLevel ? 1 : 0;
    return number;
  }

  std::vector<ki::log::Record> all() const {
    const std::lock_guard guard(fSink->guard);
    return fSink->records;
  }

  void clear() { take(); }

  /// All records so far, which are forgotten.
  std::vector<ki::log::Record> take() {
    const std::lock_guard guard(fSink->guard);
    return std::exchange(fSink->records, {});
  }

 private:
  struct RecordingSink : ki::log::Sink {
    void write(const ki::log::Record& pRecord) override {
      const std::lock_guard hold(guard);
      records.push_back(pRecord);
    }
    std::mutex guard;
    std::vector<ki::log::Record> records;
  };

  boost::shared_ptr<RecordingSink> fSink;
};

}  // namespace OX::test
