// The system's epoll with one event a call, so that of several threads that wait each event wakes
// one: the last that came, whose stack and data are still in the processor's cache.
#include "poller.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <system_error>

#include "messagestream.h"

namespace OX::wire {
namespace {

constexpr std::uint64_t kWake = 0;  ///< the number of no socket

int checked(int pResult) {
  if (pResult < 0) throw std::system_error(errno, std::generic_category());
  return pResult;
}

}  // namespace

Poller::Poller()
    : fEpoll(checked(::epoll_create1(EPOLL_CLOEXEC))),
      fWake(checked(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))) {
  epoll_event event{};
  // Each write is one event; nobody needs to read.
  event.events = EPOLLIN | EPOLLET;
  event.data.u64 = kWake;
  checked(::epoll_ctl(fEpoll.number(), EPOLL_CTL_ADD, fWake.number(), &event));
}

std::uint64_t Poller::add(int pSocket, const boost::weak_ptr<MessageStream>& pStream) {
  std::uint64_t number;
  {
    const detail::MutexLock guard(fGuard);
    number = ++fLastNumber;
    fStreams.emplace(number, pStream);
  }
  epoll_event event{};
  event.events = EPOLLONESHOT;
  event.data.u64 = number;
  if (::epoll_ctl(fEpoll.number(), EPOLL_CTL_ADD, pSocket, &event) == 0) return number;
  const int reason = errno;
  const detail::MutexLock guard(fGuard);
  fStreams.erase(number);
  throw std::system_error(reason, std::generic_category());
}

void Poller::arm(int pSocket, std::uint64_t pNumber, std::uint32_t pEvents) noexcept {
  epoll_event event{};
  event.events = pEvents | EPOLLONESHOT;
  event.data.u64 = pNumber;
  ::epoll_ctl(fEpoll.number(), EPOLL_CTL_MOD, pSocket, &event);
}

void Poller::remove(int pSocket, std::uint64_t pNumber) noexcept {
  epoll_event ignored{};
  ::epoll_ctl(fEpoll.number(), EPOLL_CTL_DEL, pSocket, &ignored);
  const detail::MutexLock guard(fGuard);
  fStreams.erase(pNumber);
}

Poller::Ready Poller::wait(int pTimeoutMs) {
  epoll_event event{};
  if (::epoll_wait(fEpoll.number(), &event, 1, pTimeoutMs) != 1 || event.data.u64 == kWake)
    return {};
  const detail::MutexLock guard(fGuard);
  const auto found = fStreams.find(event.data.u64);
  if (found == fStreams.end()) return {};
  return {found->second.lock(), event.events};
}

void Poller::wake() noexcept {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = ::write(fWake.number(), &one, sizeof one);
}

}  // namespace OX::wire
