// What this program does as the other side of a measurement.
#include "brokerside.h"
#include "child.h"
#include "rawchannel.h"

namespace OX::benchmarks {

Role roleOf(const std::string& pName) {
  if (pName == "broker") return runBroker;
  if (pName == "raw") return runRawChannel;
  return nullptr;
}

}  // namespace OX::benchmarks
