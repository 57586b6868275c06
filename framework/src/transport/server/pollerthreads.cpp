// Leader and followers: the threads are detached and all wait on one poller. A thread counts as
// waiting from its creation on, and from before each wait until it has returned from it; so when
// the count is not 0, some thread will look at the poller before it runs anything else.
#include "pollerthreads.h"

#include <atomic>
#include <boost/make_shared.hpp>
#include <exception>
#include <thread>

#include <oxframework/oxlog.h>
#include "transport/messagestream.h"

namespace OX::wire {
namespace {

// One runs a call and one waits: in this steady state no call starts or wakes a further thread.
constexpr int kKept = 2;
// After a time without work for it, any other ends.
constexpr int kIdleMs = 10'000;

/// A failure that nothing was meant to leave ends one connection and no thread.
void handle(const Poller::Ready& pReady) {
  try {
    pReady.stream->onReady(pReady.events);
  } catch (const std::exception& error) {
    ki::log::LogStream(ki::log::kError, "ox.transport", "", "run", __LINE__)
        << "Unexpected failure: " << error.what();
    pReady.stream->end(error.what());
  }
}

}  // namespace

struct PollerThreads::State {
  const boost::shared_ptr<Poller> poller = boost::make_shared<Poller>();
  std::atomic<int> waiting{0};
  std::atomic<bool> stopping{false};
};

PollerThreads::PollerThreads() : fState(std::make_shared<State>()) {}

PollerThreads::~PollerThreads() { stop(); }

void PollerThreads::stop() {
  fState->stopping = true;
  fState->poller->wake();
}

const boost::shared_ptr<Poller>& PollerThreads::getPoller() const { return fState->poller; }

bool PollerThreads::ensureWaiting() {
  if (fState->waiting.load() > 0) return true;
  ++fState->waiting;
  try {
    std::thread(&PollerThreads::xRun, fState).detach();
    return true;
  } catch (const std::exception&) {  // no thread or no memory
    return --fState->waiting > 0;
  }
}

void PollerThreads::xRun(const std::shared_ptr<State>& pState) {
  for (;;) {
    const bool spare = pState->waiting.load() > kKept;
    // The stream is released before the next wait.
    const Poller::Ready ready = pState->poller->wait(spare ? kIdleMs : -1);
    const int others = --pState->waiting;
    if (pState->stopping.load()) return pState->poller->wake();  // the next one ends too
    if (ready.stream)
      handle(ready);
    else if (spare && others >= kKept)
      return;
    ++pState->waiting;
  }
}

}  // namespace OX::wire
