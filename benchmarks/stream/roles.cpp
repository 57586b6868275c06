// What this program does as the other side of a measurement.
#include "brokerside.h"
#include "child.h"
#include "rawchannel.h"
#include "tools/tool.h"

namespace OX::benchmarks {

Role roleOf(const std::string& pName) {
  if (pName == "broker") return runBroker;
  if (pName == "raw") return runRawChannel;
  if (pName == "rawpushes") return runRawPushes;
#ifdef OX_WITH_DDS
  if (pName == "dds") return runDdsSender;
#endif
#ifdef OX_WITH_GSTREAMER
  if (pName == "gstreamer") return runGStreamerSender;
#endif
  return nullptr;
}

}  // namespace OX::benchmarks
