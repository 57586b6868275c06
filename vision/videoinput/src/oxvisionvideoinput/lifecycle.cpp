// Construction and destruction. The concrete camera fills the table of cameras; nothing here
// depends on how many there are.
#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include <oxframework/oxproxies.h>
#include "oxvisionvideoinput.h"
#include "pixels/colour/kernels.h"
#include "published/texts.h"
#include "records.h"

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
      fParametersLock(OXMutex::createOXMutex()),
      fRecordingLock(OXMutex::createOXMutex()) {
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
  fCopyBuffer = std::make_unique_for_overwrite<unsigned char[]>(kernels::kTouchScratchBytes);
}

OXVisionVideoInput::~OXVisionVideoInput() {
  for (const auto& entry : fVisionModules)
    if (entry.second->fIsRecording) xCloseVideo(entry.second);
}

void OXVisionVideoInput::setSubscriberLimit(int pLimit) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  fSubscriberLimit = pLimit;
}

}  // namespace OX
