// Construction and destruction. The concrete camera fills the table of cameras after this
// constructor, so nothing here may depend on it. A missing memory service is no reason to fail: the
// device then only misses the clean-up after a lost client.
#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include <oxframework/oxproxies.h>
#include "oxvisionvideoinput.h"
#include "published/texts.h"
#include "subscriberrecord.h"

namespace OX {

namespace {

void subscribeToDisconnections(OXModule& pModule) {
  const boost::shared_ptr<OXMemoryProxy> memory =
      pModule.getParentBroker()->getSpecialisedProxy<OXMemoryProxy>("OXMemory");
  if (memory)
    memory->subscribeToEvent("ClientDisconnected", pModule.getName(), "onClientDisconnected");
}

}  // namespace

OXVisionVideoInput::OXVisionVideoInput(boost::shared_ptr<OXBroker> pBroker, std::string pName)
    : OXModule(std::move(pBroker), pName),
      fVisionModulesLock(OXMutexRW::createOXMutexRW()),
      fParametersLock(OXMutex::createOXMutex()) {
  try {
    subscribeToDisconnections(*this);
  } catch (const OXError&) {
    report::log(ki::log::kError, "OXVisionVideoInput",
                getName() + ": Could not connect to Memory.");
  }
  setModuleDescription(texts::kModuleDescription);
  addModuleExample("C++", texts::kModuleExampleCpp);
  addModuleExample("Python", texts::kModuleExamplePython);
  xBindMethods();
  xBindDeprecatedMethods();
  xDeclareOwnership();
}

// A recording that is still open gets its index: without it a reader would have to repair the file.
OXVisionVideoInput::~OXVisionVideoInput() {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  for (const auto& entry : fVisionModules)
    if (entry.second->fIsRecording) xCloseVideo(entry.second, "the device ended");
}

void OXVisionVideoInput::setSubscriberLimit(int pLimit) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  fSubscriberLimit = pLimit;
}

}  // namespace OX
