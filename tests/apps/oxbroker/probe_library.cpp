// A library for the daemon to load; built once as one that works and once as one that does not.
#include <oxframework/oxapi.h>
#include "support/probe_module.h"

extern "C" OX_API int _createModule(boost::shared_ptr<OX::OXBroker> pBroker) {
#ifdef OX_PROBE_THROWS
  throw std::runtime_error("no camera is plugged in");
#endif
  if (OX_PROBE_RESULT == 0) OX::OXModule::createModule<OX::test::ProbeModule>(pBroker);
  return OX_PROBE_RESULT;
}

extern "C" OX_API int _closeModule() {
  std::puts("closed");
  std::fflush(stdout);
  return 0;
}
