// A turn is a state of the thing and not a lock, so that waiting for it has a bound, is done with
// no lock held, and can end with an error that says what is still under way.
#include "turn.h"

#include <chrono>

#include "report.h"

namespace OX {
namespace {

constexpr std::chrono::seconds kBound(10);

}  // namespace

void Turn::take(const boost::shared_ptr<OXMutexRW>& pLock) {
  if (!tryTake(pLock, kBound))
    report::fail("OXVideoDevice", "Turn", "Turn::take()",
                 report::text("Another ", fWhat, " has been under way for ", kBound.count(),
                              " s: nothing was done, try again when it has ended"));
}

bool Turn::tryTake(const boost::shared_ptr<OXMutexRW>& pLock, std::chrono::microseconds pBound) {
  const std::thread::id self = std::this_thread::get_id();
  if (fDepth > 0 && fHolder != self) {
    const auto deadline = std::chrono::steady_clock::now() + pBound;
    while (fDepth > 0) {
      const auto left = deadline - std::chrono::steady_clock::now();
      if (left <= left.zero()) return false;
      const std::uint64_t seen = fEnded.count();
      const OXCriticalSectionPause pause(pLock);
      fEnded.wait(seen, std::chrono::duration_cast<std::chrono::microseconds>(left));
    }
  }
  fHolder = self;
  ++fDepth;
  return true;
}

void Turn::end() {
  if (--fDepth == 0) fEnded.notify();
}

}  // namespace OX
