// Each row of OXMutexRW's table, its fairness, and its exclusion under random use; OXMutex and the
// scoped holders. A thread counts as waiting when it has begun its request, has not returned, and
// the kernel reports that it sleeps.
#include <oxframework/oxlocks.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <oxframework/oxerror.h>
#include "support/capture_log.h"

namespace OX::test {
namespace {

/// A thread that executes requests, one after the other.
class Actor {
 public:
  explicit Actor(OXMutexRW& pLock) : fLock(pLock), fThread([this] { xRun(); }) {}
  ~Actor() {
    tell([this] { fEnd = true; });
    fThread.join();
  }
  Actor(const Actor&) = delete;
  Actor& operator=(const Actor&) = delete;

  /// "at once", "waits", or "error" for a request; finish() waits for one that waits.
  std::string lockRead() {
    return xAsk([this] { fLock.lockRead(); });
  }
  std::string lockWrite() {
    return xAsk([this] { fLock.lockWrite(); });
  }
  std::string unlockRead() {
    return xAsk([this] { fLock.unlockRead(); });
  }
  std::string unlockWrite() {
    return xAsk([this] { fLock.unlockWrite(); });
  }

  void tell(std::function<void()> pTask) {
    const std::lock_guard hold(fGuard);
    fTask = std::move(pTask);
    fDone = false;
    fWake.notify_all();
  }

  void finish() {
    std::unique_lock hold(fGuard);
    fWake.wait(hold, [this] { return fDone.load(); });
  }

  bool sleepsInItsTask() const {
    for (int i = 0; i < 50; ++i) {
      if (fDone || !fBegun || xKernelState() != 'S') return false;
      std::this_thread::yield();
    }
    return true;
  }

 private:
  std::string xAsk(const std::function<void()>& pRequest) {
    fFailed = false;
    fBegun = false;
    tell([this, pRequest] {
      fBegun = true;
      try {
        pRequest();
      } catch (const OXError&) {
        fFailed = true;
      }
    });
    while (!fDone && !sleepsInItsTask()) std::this_thread::yield();
    if (!fDone) return "waits";
    finish();
    return fFailed ? "error" : "at once";
  }

  char xKernelState() const {
    std::ifstream file("/proc/self/task/" + std::to_string(fId) + "/stat");
    std::string text;
    std::getline(file, text);
    const auto nameEnd = text.rfind(") ");
    return nameEnd == std::string::npos ? '?' : text[nameEnd + 2];
  }

  void xRun() {
    fId = ::gettid();
    std::unique_lock hold(fGuard);
    while (!fEnd) {
      fWake.wait(hold, [this] { return static_cast<bool>(fTask); });
      const std::function<void()> task = std::move(fTask);
      fTask = nullptr;
      hold.unlock();
      task();
      hold.lock();
      fDone = true;
      fWake.notify_all();
    }
  }

  OXMutexRW& fLock;
  std::atomic<int> fId{0};
  std::atomic<bool> fBegun{false};
  std::atomic<bool> fDone{true};
  std::atomic<bool> fFailed{false};
  bool fEnd = false;
  std::mutex fGuard;
  std::condition_variable fWake;
  std::function<void()> fTask;
  std::thread fThread;
};

TEST(OXMutexRW, AThreadThatHoldsNothingWaitsForOthers) {
  OXMutexRW lock;
  Actor one(lock);
  Actor two(lock);
  EXPECT_EQ(one.lockRead(), "at once");
  EXPECT_EQ(two.lockRead(), "at once") << "readers share";
  EXPECT_EQ(two.unlockRead(), "at once");
  EXPECT_EQ(two.lockWrite(), "waits") << "after a reader";
  EXPECT_EQ(one.unlockRead(), "at once");
  two.finish();
  EXPECT_EQ(one.lockRead(), "waits") << "after a writer";
  EXPECT_EQ(two.unlockWrite(), "at once");
  one.finish();
  EXPECT_EQ(one.unlockRead(), "at once");
}

TEST(OXMutexRW, AReaderReadsAgainEvenWhileAWriterWaits) {
  OXMutexRW lock;
  Actor reader(lock);
  Actor writer(lock);
  Actor other(lock);
  EXPECT_EQ(reader.lockRead(), "at once");
  EXPECT_EQ(writer.lockWrite(), "waits");
  EXPECT_EQ(other.lockRead(), "waits") << "after the writer, which would starve otherwise";
  EXPECT_EQ(reader.lockRead(), "at once");
  EXPECT_EQ(reader.unlockRead(), "at once");
  EXPECT_TRUE(writer.sleepsInItsTask()) << "the reader still reads";
  EXPECT_EQ(reader.unlockRead(), "at once");
  writer.finish();
  EXPECT_EQ(writer.unlockWrite(), "at once");
  other.finish();
  EXPECT_EQ(other.unlockRead(), "at once");
}

TEST(OXMutexRW, AReaderThatAsksToWriteIsRefusedAndStillReads) {
  OXMutexRW lock;
  Actor reader(lock);
  Actor writer(lock);
  EXPECT_EQ(reader.lockRead(), "at once");
  EXPECT_EQ(reader.lockWrite(), "error");
  EXPECT_EQ(writer.lockWrite(), "waits");
  EXPECT_EQ(reader.lockWrite(), "error") << "also while another waits";
  EXPECT_EQ(reader.unlockRead(), "at once");
  writer.finish();
  EXPECT_EQ(writer.unlockWrite(), "at once");
  EXPECT_EQ(reader.lockWrite(), "at once") << "when it reads no more it may";
  EXPECT_EQ(reader.unlockWrite(), "at once");
}

TEST(OXMutexRW, AWriterIsReentrantAndMayContinueAsAReader) {
  OXMutexRW lock;
  Actor writer(lock);
  Actor other(lock);
  EXPECT_EQ(writer.lockWrite(), "at once");
  EXPECT_EQ(writer.lockWrite(), "at once");
  EXPECT_EQ(writer.lockRead(), "at once");
  EXPECT_EQ(writer.unlockWrite(), "at once");
  EXPECT_EQ(other.lockRead(), "waits") << "released once of twice";
  EXPECT_EQ(writer.unlockWrite(), "at once");
  other.finish();
  EXPECT_EQ(other.unlockRead(), "at once");
  EXPECT_EQ(writer.lockWrite(), "error") << "it is a reader now";
  EXPECT_EQ(other.lockWrite(), "waits");
  EXPECT_EQ(writer.unlockRead(), "at once");
  other.finish();
  EXPECT_EQ(other.unlockWrite(), "at once");
}

TEST(OXMutexRW, ReleasingWhatIsNotHeldIsAnErrorAndChangesNothing) {
  OXMutexRW lock;
  Actor holder(lock);
  Actor thief(lock);
  EXPECT_EQ(thief.unlockRead(), "error");
  EXPECT_EQ(thief.unlockWrite(), "error");
  EXPECT_EQ(holder.lockRead(), "at once");
  EXPECT_EQ(thief.unlockRead(), "error");
  EXPECT_EQ(holder.unlockWrite(), "error");
  EXPECT_EQ(holder.unlockRead(), "at once");
  EXPECT_EQ(holder.lockWrite(), "at once");
  EXPECT_EQ(thief.unlockWrite(), "error");
  EXPECT_EQ(holder.unlockRead(), "error");
  EXPECT_EQ(thief.lockRead(), "waits");
  EXPECT_EQ(holder.unlockWrite(), "at once");
  thief.finish();
  EXPECT_EQ(thief.unlockRead(), "at once");
}

TEST(OXMutexRW, ServesInTheOrderOfRequests) {
  OXMutexRW lock;
  Actor first(lock);
  Actor writer(lock);
  Actor readerA(lock);
  Actor readerB(lock);
  Actor lastWriter(lock);
  EXPECT_EQ(first.lockWrite(), "at once");
  EXPECT_EQ(writer.lockWrite(), "waits");
  EXPECT_EQ(readerA.lockRead(), "waits");
  EXPECT_EQ(readerB.lockRead(), "waits");
  EXPECT_EQ(lastWriter.lockWrite(), "waits");

  EXPECT_EQ(first.unlockWrite(), "at once");
  writer.finish();
  EXPECT_TRUE(readerA.sleepsInItsTask());
  EXPECT_EQ(first.lockRead(), "waits") << "a latecomer queues after the last writer";
  EXPECT_EQ(writer.unlockWrite(), "at once");
  readerA.finish();
  readerB.finish();
  EXPECT_TRUE(lastWriter.sleepsInItsTask());
  EXPECT_EQ(readerA.unlockRead(), "at once");
  EXPECT_EQ(readerB.unlockRead(), "at once");
  lastWriter.finish();
  EXPECT_TRUE(first.sleepsInItsTask());
  EXPECT_EQ(lastWriter.unlockWrite(), "at once");
  first.finish();
  EXPECT_EQ(first.unlockRead(), "at once");
}

/// Random steps of one thread. The lock guards two plain numbers, which are equal outside of a
/// write; the thread sanitizer detects whether it does.
void useAtRandom(OXMutexRW& pLock, std::array<int, 2>& pPair, unsigned int pSeed) {
  std::minstd_rand random(pSeed);
  for (int step = 0; step < 2000; ++step) {
    const bool again = random() % 2 == 0;
    if (random() % 4 == 0) {
      pLock.lockWrite();
      if (again) pLock.lockWrite();
      ++pPair[0];
      pLock.lockRead();
      ++pPair[1];
      if (again) pLock.unlockWrite();
      pLock.unlockWrite();
      EXPECT_EQ(pPair[0], pPair[1]) << "seed " << pSeed;
      pLock.unlockRead();
    } else {
      pLock.lockRead();
      if (again) pLock.lockRead();
      EXPECT_EQ(pPair[0], pPair[1]) << "seed " << pSeed;
      if (step % 16 == 0) {
        EXPECT_THROW(pLock.lockWrite(), OXError);
      }
      if (again) pLock.unlockRead();
      pLock.unlockRead();
    }
  }
}

TEST(OXMutexRW, GuardsUnderRandomUse) {
  OXMutexRW lock;
  std::array<int, 2> pair{};
  std::vector<std::thread> threads;
  for (unsigned int seed = 1; seed <= 6; ++seed)
    threads.emplace_back([&, seed] { useAtRandom(lock, pair, seed); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_FALSE(lock.isHeldForWriting());
  EXPECT_GT(pair[0], 0);
}

TEST(CriticalSections, HoldTheLockForTheirScope) {
  const auto lock = OXMutexRW::createOXMutexRW();
  Actor other(*lock);
  {
    const OXCriticalSectionWrite writing(lock);
    EXPECT_TRUE(lock->isHeldForWriting());
    const OXCriticalSectionRead reading(lock);
    EXPECT_EQ(other.lockRead(), "waits");
  }
  other.finish();
  EXPECT_EQ(other.unlockRead(), "at once");
  const auto mutex = OXMutex::createOXMutex();
  const OXCriticalSection once(mutex);
  const OXCriticalSection twice(mutex);
}

TEST(OXMutex, IsCountedAndReleasedByItsHolderOnly) {
  const auto mutex = OXMutex::createOXMutex();
  const auto unlockElsewhere = [&] {
    std::string outcome = "released";
    std::thread([&] {
      try {
        mutex->unlock();
      } catch (const OXError& error) {
        outcome = error.what();
      }
    }).join();
    return outcome;
  };
  EXPECT_EQ(unlockElsewhere(), "This thread does not hold the lock");
  mutex->lock();
  mutex->lock();
  mutex->unlock();
  EXPECT_EQ(unlockElsewhere(), "This thread does not hold the lock");
  mutex->unlock();
  EXPECT_THROW(mutex->unlock(), OXError);
}

// A destructor that threw would end the process.
TEST(CriticalSections, LogALockThatWasReleasedByHand) {
  const CaptureLog log;
  const auto mutex = OXMutex::createOXMutex();
  const auto lock = OXMutexRW::createOXMutexRW();
  {
    const OXCriticalSection holder(mutex);
    mutex->unlock();
  }
  {
    const OXCriticalSectionRead holder(lock);
    lock->unlockRead();
  }
  {
    const OXCriticalSectionWrite holder(lock);
    lock->unlockWrite();
  }
  EXPECT_EQ(log.records(ki::log::kError),
            "OXCriticalSection: The lock was already released: This thread does not hold the lock\n"
            "OXCriticalSectionRead: The lock was already released: "
            "This thread does not hold the lock for reading\n"
            "OXCriticalSectionWrite: The lock was already released: "
            "This thread does not hold the lock for writing\n");
  // It is not held any more, and still works.
  Actor other(*lock);
  EXPECT_EQ(other.lockWrite(), "at once");
  EXPECT_EQ(other.unlockWrite(), "at once");
}

#if defined(__SANITIZE_THREAD__)
// Two orders on one thread: nothing waits, but two threads might wait for each other.
TEST(LockOrderDeathTest, OfBothKindsIsChecked) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto mutex = OXMutex::createOXMutex();
  const auto lock = OXMutexRW::createOXMutexRW();
  const auto invert = [&] {
    {
      const OXCriticalSection first(mutex);
      const OXCriticalSectionRead second(lock);
    }
    const OXCriticalSectionWrite first(lock);
    const OXCriticalSection second(mutex);
  };
  EXPECT_EXIT((invert(), std::exit(0)), testing::ExitedWithCode(66), "lock-order-inversion");
}
#endif

}  // namespace
}  // namespace OX::test
