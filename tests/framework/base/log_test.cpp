// The log's way to standard error: what is written in which order, what is dropped and counted, and
// what is left when the process ends.
#include <oxframework/oxlog.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <oxframework/oxerror.h>
#include "base/logwriter.h"

namespace OX::test {
namespace {

using ki::log::LogWriter;
using namespace std::chrono_literals;

/// A pipe that is full at the start: the writer's next record waits until somebody reads.
class FullPipe {
 public:
  FullPipe() {
    if (::pipe2(fEnds, O_CLOEXEC) != 0) return;
    ::fcntl(fEnds[1], F_SETFL, O_NONBLOCK);
    for (const std::string block(4096, '\n'); ::write(fEnds[1], block.data(), block.size()) > 0;) {
    }
    ::fcntl(fEnds[1], F_SETFL, 0);
  }
  ~FullPipe() {
    closeReader();
    ::close(fEnds[1]);
  }
  FullPipe(const FullPipe&) = delete;
  FullPipe& operator=(const FullPipe&) = delete;

  int file() const { return fEnds[1]; }
  void closeReader() {
    if (fEnds[0] >= 0) ::close(fEnds[0]);
    fEnds[0] = -1;
  }
  void reopenReader() {
    fEnds[0] = ::open(("/proc/self/fd/" + std::to_string(fEnds[1])).c_str(), O_RDONLY | O_CLOEXEC);
  }

  /// The next record without its time.
  std::string readRecord() {
    std::string line;
    do {
      line.clear();
      for (char byte; ::read(fEnds[0], &byte, 1) == 1 && byte != '\n';) line += byte;
    } while (line.empty());
    return line.substr(line.find(' ', line.find(' ') + 1) + 1);
  }

 private:
  int fEnds[2] = {-1, -1};
};

long droppedIn(const std::string& pRecord) {
  const std::string head = "warning ox.log write: ", tail = " records dropped";
  if (!pRecord.starts_with(head) || !pRecord.ends_with(tail)) return 0;
  return std::stol(pRecord.substr(head.size()));
}

TEST(LogWriter, DropsAndCountsWhatFindsTheQueueFull) {
  const struct {
    LogWriter::Limits limits;
    std::size_t size;  // of each record
    int mostKept;      // as many may be queued, and as many in the thread's hands
    const char* why;
  } kCases[] = {
      {{8, 1000000}, 10, 16, "by number"},
      {{1000, 800}, 100, 16, "by bytes"},
      {{1000, 800}, 2000, 2, "one that is larger than the whole queue is taken when it is empty"},
  };
  constexpr int kRecords = 200;
  for (const auto& test : kCases) {
    FullPipe pipe;
    LogWriter writer(pipe.file(), test.limits);
    for (int i = 0; i < kRecords; ++i) {
      std::string text = std::to_string(i);
      text.resize(test.size, ' ');
      writer.write(ki::log::kError, std::move(text));
    }
    EXPECT_FALSE(writer.awaitWritten(0ms)) << test.why;
    int kept = 0, last = -1;
    long dropped = 0;
    while (kept + dropped < kRecords) {
      const std::string record = pipe.readRecord();
      if (const long number = droppedIn(record)) {
        dropped += number;
        continue;
      }
      ASSERT_TRUE(record.starts_with("error ")) << record;
      const int number = std::stoi(record.substr(6));
      EXPECT_GT(number, last) << test.why;
      EXPECT_EQ(number, kept + dropped) << test.why << ": the count's place is where they lack";
      last = number;
      ++kept;
    }
    EXPECT_LE(kept, test.mostKept) << test.why;
    EXPECT_GE(kept, test.mostKept / 2) << test.why;
    writer.write(ki::log::kInfo, "after");
    EXPECT_EQ(pipe.readRecord(), "info after") << test.why;
    EXPECT_TRUE(writer.awaitWritten(20s)) << test.why;
  }
}

TEST(LogWriter, OutlivesItsReader) {
  FullPipe pipe;
  LogWriter writer(pipe.file());
  pipe.closeReader();
  for (int i = 0; i < 3; ++i) writer.write(ki::log::kError, "lost");
  ASSERT_TRUE(writer.awaitWritten(20s)) << "a failed write is an end of it as well";
  pipe.reopenReader();
  writer.write(ki::log::kFatal, "kept");
  EXPECT_EQ(pipe.readRecord(), "critical kept");
  EXPECT_EQ(pipe.readRecord(), "warning ox.log write: 3 records dropped");
}

TEST(LogWriter, KeepsTheOrderOfEachThread) {
  constexpr int kThreads = 4, kRecords = 500;
  FullPipe pipe;
  LogWriter writer(pipe.file(), {kThreads * kRecords, 1000000});
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&writer, t] {
      for (int i = 0; i < kRecords; ++i)
        writer.write(ki::log::kError, std::to_string(t) + " " + std::to_string(i));
    });
  int next[kThreads] = {};
  for (int i = 0; i < kThreads * kRecords; ++i) {
    std::istringstream record(pipe.readRecord());
    std::string level;
    int thread = -1, number = -1;
    record >> level >> thread >> number;
    ASSERT_TRUE(level == "error" && thread >= 0 && thread < kThreads) << record.str();
    ASSERT_EQ(number, next[thread]++) << "of thread " << thread;
  }
  for (std::thread& thread : threads) thread.join();
}

void logRecord(const std::string& pText) {
  ki::log::log(ki::log::kError, "test", pText, "", "log", 0);
}

/// A static object that logs in its destructor.
struct LastWords {
  ~LastWords() { logRecord("last words"); }
};

/// Ways to end, whose status does not depend on whether the records could be written.
const struct {
  const char* name;
  void (*end)();
  std::function<bool(int)> expected;
  const char* text;  // after the records
} kEnds[] = {
    {"exit", [] { std::exit(3); }, ::testing::ExitedWithCode(3), ".*last words\n$"},
    {"abort", std::abort, ::testing::KilledBySignal(SIGABRT), "$"},
    {"terminate", []() noexcept { raiseError("Test", "end", "why it ended"); },
     ::testing::KilledBySignal(SIGABRT), "(.*\n)*.*why it ended"},
};

class LogDeathTest : public ::testing::Test {
 protected:
  // The child of a plain fork logs as its parent did; the thread sanitizer refuses that.
  void SetUp() override {
    // A forked child has lost the log's thread: the thread sanitizer does not follow, and what that
    // thread had in its hands looks leaked to the address sanitizer.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
    GTEST_FLAG_SET(death_test_style, "threadsafe");
#else
    GTEST_FLAG_SET(death_test_style, "fast");
#endif
    logRecord("of the parent");
  }

  static void logRecords() {
    static const LastWords words;
    for (int i = 0; i < 3000; ++i) logRecord("record " + std::to_string(i));
  }
};

TEST_F(LogDeathTest, WritesWhatWasLoggedBeforeTheEnd) {
  for (const auto& test : kEnds) {
    const auto logAndEnd = [&] {
      logRecords();
      test.end();
    };
    EXPECT_EXIT(logAndEnd(), test.expected, std::string("record 2999\n") + test.text) << test.name;
  }
}

TEST_F(LogDeathTest, EndsThoughNobodyReads) {
  for (const auto& test : kEnds) {
    const auto logAndEnd = [&] {
      const FullPipe pipe;
      ::dup2(pipe.file(), STDERR_FILENO);
      ::alarm(20);  // a wait without end is another signal than the one expected
      logRecords();
      test.end();
    };
    EXPECT_EXIT(logAndEnd(), test.expected, "") << test.name;
  }
}

}  // namespace
}  // namespace OX::test
