// The entry points of the plug-in. Without a video device there is nothing to stream: that is
// logged, and the broker goes on without this library.
#include <boost/shared_ptr.hpp>

#include <oxframework/oxapi.h>
#include <oxframework/oxbroker.h>
#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include "oxvideostream/oxstreamservice.h"

extern "C" {

/// Creates the module OXVideoStream, which the broker then owns. Returns 0, or 1 when there is no
/// video device.
OX_API int _createModule(boost::shared_ptr<OX::OXBroker> pBroker);
/// Does nothing and returns 0: the module ends when the broker releases it.
OX_API int _closeModule();
}

int _createModule(boost::shared_ptr<OX::OXBroker> pBroker) {
  try {
    OX::OXModule::createModule<OX::OXStreamService>(pBroker);
    return 0;
  } catch (const OX::OXError& error) {
    ki::log::log(ki::log::kWarning, "vision.videostream",
                 std::string("No streams: ") + error.what(), "", "_createModule", 0);
    return 1;
  }
}

int _closeModule() { return 0; }
