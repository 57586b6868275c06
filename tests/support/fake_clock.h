/// A clock that only a test or a sleep advances.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

#include <oxframework/oxclock.h>

namespace OX::test {

/// Replaces the system's clock during its lifetime: construct it before, and destroy it after,
/// everything that reads the time. Thread-safe.
class FakeClock : public OXClock {
 public:
  static constexpr std::int64_t kStartUs = 1'700'000'000'000'000;

  explicit FakeClock(std::int64_t pNowUs = kStartUs) : fNowUs(pNowUs) { OXClock::set(this); }
  ~FakeClock() override { OXClock::set(nullptr); }
  FakeClock(const FakeClock&) = delete;
  FakeClock& operator=(const FakeClock&) = delete;

  std::int64_t nowUs() override { return fNowUs.load(); }
  /// Local time is UTC here.
  std::int64_t localNowUs() override { return fNowUs.load(); }

  /// Takes no real time: advances the clock, calls the hook and lets other threads run.
  void sleepUs(unsigned int pDurationUs) override {
    fNowUs += pDurationUs;
    fSleptUs += pDurationUs;
    ++fSleeps;
    if (const Hook hook = xHook()) hook(pDurationUs);
    std::this_thread::yield();
  }

  void setUs(std::int64_t pNowUs) { fNowUs.store(pNowUs); }
  void advanceUs(std::int64_t pDurationUs) { fNowUs += pDurationUs; }

  /// The total time slept by all threads, and the number of sleeps.
  std::int64_t sleptUs() const { return fSleptUs.load(); }
  int sleeps() const { return fSleeps.load(); }

  /// Called on the sleeper's thread after each sleep, without a lock: use it to push the frame or
  /// release the hold that the sleeper waits for. An empty one removes the hook.
  using Hook = std::function<void(unsigned int pDurationUs)>;
  void setSleepHook(Hook pHook) {
    const std::lock_guard guard(fGuard);
    fHook = std::move(pHook);
  }

 private:
  Hook xHook() {
    const std::lock_guard guard(fGuard);
    return fHook;
  }

  std::atomic<std::int64_t> fNowUs;
  std::atomic<std::int64_t> fSleptUs{0};
  std::atomic<int> fSleeps{0};
  std::mutex fGuard;
  Hook fHook;
};

}  // namespace OX::test
