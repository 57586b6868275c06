// Tasks start in order and at once up to the limit; the end is bounded; nothing posted is lost.
#include "broker/threadpool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include <oxframework/oxerror.h>
#include "support/capture_log.h"

namespace OX::test {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;

TEST(ThreadPool, AWaitingTaskKeepsNoOtherFromStarting) {
  constexpr int kTasks = 40;
  OXThreadPool pool(kTasks);
  std::latch together(kTasks);
  for (int i = 0; i < kTasks; ++i)
    ASSERT_TRUE(
        pool.post([&] { together.arrive_and_wait(); }));  // passes only when all have started
  EXPECT_TRUE(pool.stop(hours(1)));
}

TEST(ThreadPool, AnIdleThreadCountsForOneTaskOnly) {
  for (int round = 0; round < 50; ++round) {
    OXThreadPool pool(2);
    std::latch warm(1);
    pool.post([&] { warm.count_down(); });
    warm.wait();
    for (int i = 0; i < 1000; ++i) std::this_thread::yield();  // it is idle now, most likely
    std::latch together(2);
    pool.post(
        [&] { together.arrive_and_wait(); });  // the idle thread takes it, which may still sleep
    pool.post([&] { together.arrive_and_wait(); });
    ASSERT_TRUE(pool.stop(hours(1)));
  }
}

TEST(ThreadPool, KeepsItsLimitAndOrder) {
  OXThreadPool pool(1);
  std::vector<int> started;  // one thread at a time: needs no lock
  for (int i = 0; i < 100; ++i) ASSERT_TRUE(pool.post([&started, i] { started.push_back(i); }));
  EXPECT_EQ(pool.getThreadCount(), 1);
  EXPECT_TRUE(pool.stop(hours(1)));
  ASSERT_EQ(started.size(), 100u) << "what was taken before the end is done";
  EXPECT_TRUE(std::is_sorted(started.begin(), started.end()));
}

TEST(ThreadPool, ReusesIdleThreadsAndEndsThem) {
  OXThreadPool pool(8, milliseconds(1));
  std::latch done(1);
  ASSERT_TRUE(pool.post([&] { done.count_down(); }));
  done.wait();
  while (pool.getThreadCount() > 0) std::this_thread::yield();
  std::latch again(1);
  ASSERT_TRUE(pool.post([&] { again.count_down(); }));
  again.wait();
}

TEST(ThreadPool, SurvivesWhatATaskThrows) {
  CaptureLog log;
  {
    OXThreadPool pool(1);
    pool.post([] { throw OXError("M", "f", "broken", "", 0); });
    pool.post([] { throw std::runtime_error("worse"); });
    pool.post([] { throw 42; });
    EXPECT_TRUE(pool.stop(hours(1)));
  }
  EXPECT_EQ(log.records(2),
            "OXThreadPool: A task failed: M::f\n\tbroken\n"
            "OXThreadPool: A task failed: worse\n"
            "OXThreadPool: A task failed with an exception of an unknown type\n");
}

TEST(ThreadPool, StopIsBoundedDropsWhatHasNotStartedAndRefusesMore) {
  std::latch running(1);
  std::latch release(1);
  std::atomic<bool> started{false};
  std::atomic<bool> ended{false};
  const auto held = std::make_shared<int>(0);
  {
    OXThreadPool pool(1);
    pool.post([&] {
      running.count_down();
      release.wait();
      ended = true;
    });
    pool.post([&, held] { started = true; });
    running.wait();
    EXPECT_FALSE(pool.stop(milliseconds(0))) << "one is stuck";
    EXPECT_EQ(held.use_count(), 1) << "a dropped task releases what it holds";
    EXPECT_FALSE(pool.post([] {}));
    release.count_down();
    EXPECT_TRUE(pool.stop(hours(1)));
  }
  EXPECT_TRUE(ended);
  EXPECT_FALSE(started);
}

TEST(ThreadPool, ATaskMayStopThePoolItRunsOn) {
  OXThreadPool pool(2);
  std::latch done(1);
  std::atomic<bool> stopped{false};
  pool.post([&] {
    stopped = pool.stop(hours(1));
    done.count_down();
  });
  done.wait();
  EXPECT_TRUE(stopped);
  EXPECT_TRUE(pool.stop(hours(1)));
}

TEST(ThreadPool, AGuestCountsAsAThreadAndLeavesToWhatIsQueued) {
  OXThreadPool pool(1);
  std::latch done(1);
  bool nested = true;
  bool stopped = true;
  EXPECT_TRUE(pool.tryRun([&] {
    EXPECT_TRUE(pool.post([&] { done.count_down(); }));
    nested = pool.tryRun([] {});
  }));
  EXPECT_FALSE(nested) << "the limit";
  done.wait();
  while (!pool.tryRun([&] { stopped = pool.stop(hours(1)); })) std::this_thread::yield();
  EXPECT_TRUE(stopped) << "it does not wait for itself";
  EXPECT_FALSE(pool.tryRun([] {}));
}

TEST(ThreadPool, WaitsForItsGuests) {
  OXThreadPool pool(2);
  std::latch running(1);
  std::latch release(1);
  std::thread guest([&] {
    pool.tryRun([&] {
      running.count_down();
      release.wait();
    });
  });
  running.wait();
  EXPECT_FALSE(pool.stop(milliseconds(0)));
  release.count_down();
  EXPECT_TRUE(pool.stop(hours(1)));
  guest.join();
}

TEST(ThreadPool, RefusesALimitBelowOneThread) { EXPECT_THROW(OXThreadPool(0), OXError); }

TEST(ThreadPool, LosesNoTaskOfManyPosters) {
  OXThreadPool pool(4, milliseconds(0));  // threads start and end all the time
  std::atomic<int> done{0};
  std::vector<std::thread> posters;
  for (int i = 0; i < 4; ++i)
    posters.emplace_back([&] {
      for (int task = 0; task < 500; ++task) EXPECT_TRUE(pool.post([&] { ++done; }));
    });
  for (std::thread& poster : posters) poster.join();
  EXPECT_TRUE(pool.stop(hours(1)));
  EXPECT_EQ(done, 2000);
}

}  // namespace
}  // namespace OX::test
