/// Which cores the two sides of a measurement run on: latency between processes is mostly that of
/// waking them, which depends on where they are.
#pragma once

#include <sys/types.h>

#include <stdexcept>

namespace OX::benchmarks {

enum class Placement {
  kOwnCores,  ///< all threads of the client on one core, all of the server on another
  kOneCore,   ///< both on the same
};
enum class Side { kClient, kServer };

/// The machine lacks what a row needs: the row is left out, and says so.
struct NotAvailable : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The core for a side, of those that this program was started on: the last ones, since the first
/// takes most interrupts. Throws NotAvailable where there is only one.
int coreFor(Placement pPlacement, Side pSide);

/// Moves all threads of a process to a core, -1 for all that this program was started on. Threads
/// that they start later stay there too.
void pinProcess(pid_t pProcess, int pCore);

/// This process as the client while it lives; then back on all cores.
class ClientPlacement {
 public:
  explicit ClientPlacement(Placement pPlacement) {
    pinProcess(0, coreFor(pPlacement, Side::kClient));
  }
  ~ClientPlacement();
  ClientPlacement(const ClientPlacement&) = delete;
  ClientPlacement& operator=(const ClientPlacement&) = delete;
};

}  // namespace OX::benchmarks
