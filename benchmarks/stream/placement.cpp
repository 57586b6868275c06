// Affinity of a whole process: Linux knows that of threads only.
#include "placement.h"

#include <sched.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <vector>

namespace OX::benchmarks {
namespace {

/// Before main(), so before this program pins itself.
const cpu_set_t gStartedOn = [] {
  cpu_set_t set;
  CPU_ZERO(&set);
  ::sched_getaffinity(0, sizeof set, &set);
  return set;
}();

std::vector<int> cores() {
  std::vector<int> all;
  for (int core = 0; core < CPU_SETSIZE; ++core)
    if (CPU_ISSET(core, &gStartedOn)) all.push_back(core);
  return all;
}

}  // namespace

int coreFor(Placement pPlacement, Side pSide) {
  const std::vector<int> all = cores();
  if (pPlacement == Placement::kOneCore) return all.back();
  if (all.size() < 2) throw NotAvailable("needs two cores");
  return all[all.size() - (pSide == Side::kServer ? 1 : 2)];
}

void pinProcess(pid_t pProcess, int pCore) {
  cpu_set_t set = gStartedOn;
  if (pCore >= 0) {
    CPU_ZERO(&set);
    CPU_SET(pCore, &set);
  }
  const std::filesystem::path tasks =
      pProcess == 0 ? "/proc/self/task" : "/proc/" + std::to_string(pProcess) + "/task";
  for (const auto& task : std::filesystem::directory_iterator(tasks)) {
    const pid_t thread = std::atoi(task.path().filename().c_str());
    // A thread that has ended meanwhile needs no core.
    if (::sched_setaffinity(thread, sizeof set, &set) != 0 && errno != ESRCH)
      throw std::system_error(errno, std::generic_category(), "sched_setaffinity");
  }
}

ClientPlacement::~ClientPlacement() {
  try {
    pinProcess(0, -1);
  } catch (const std::exception&) {
    std::abort();  // the rows that follow would not be what they say
  }
}

}  // namespace OX::benchmarks
