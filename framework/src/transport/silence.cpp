// The system's own counters, which cost a call to read. That time passes since the peer was heard
// does not count alone: the system asks a peer without room ever more rarely.
#include "silence.h"

#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <utility>

namespace OX::wire {

std::chrono::milliseconds Silence::look(int pSocket) {
  using std::chrono::milliseconds;
  const Clock::time_point now = Clock::now();
  const Clock::time_point before = std::exchange(fLooked, now);
  tcp_info state{};
  socklen_t size = sizeof state;
  int waiting = 0;
  if (::ioctl(pSocket, SIOCOUTQ, &waiting) != 0 ||
      ::getsockopt(pSocket, IPPROTO_TCP, TCP_INFO, &state, &size) != 0)
    return milliseconds(0);
  const milliseconds sinceHeard(std::min(state.tcpi_last_ack_recv, state.tcpi_last_data_recv));
  if (waiting == 0 || now - sinceHeard >= before) {
    fAsked.reset();
    fSentAgain = state.tcpi_total_retrans;
    return milliseconds(0);
  }
  const bool isAsked = state.tcpi_probes > 0 || state.tcpi_total_retrans != fSentAgain;
  if (isAsked && !fAsked) fAsked = now;
  return fAsked ? std::chrono::duration_cast<milliseconds>(now - *fAsked) : milliseconds(0);
}

}  // namespace OX::wire
