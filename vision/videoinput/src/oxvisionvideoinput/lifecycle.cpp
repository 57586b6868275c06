// Construction, destruction, and the lookups that all areas share.
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include <oxframework/oxproxies.h>
#include <oxframework/oxvideo.h>
#include "oxvisionvideoinput.h"
#include "pixels/colour/kernels.h"
#include "published/texts.h"

namespace OX {

VisionModuleInfo::VisionModuleInfo() = default;
VisionModuleInfo::~VisionModuleInfo() = default;

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

RealCameraProperties* OXVisionVideoInput::xCamera(int pCameraIndex) const {
  const bool known = pCameraIndex >= 0 && pCameraIndex < fNbCameras;
  return known ? fCameraProperties[static_cast<std::size_t>(pCameraIndex)].get() : nullptr;
}

int OXVisionVideoInput::xCurrentCamera(const VisionModuleInfo& pModule) const {
  return pModule.fActiveCamera < 0 ? fActiveCamera.load() : pModule.fActiveCamera;
}

int OXVisionVideoInput::xCheckedCurrentCamera(const VisionModuleInfo& pModule,
                                              const char* pFunction) const {
  const int camera = xCurrentCamera(pModule);
  if (!xCamera(camera))
    report::fail(getName(), pFunction, (std::string(pFunction) + "()").c_str(),
                 report::text(pFunction, "(", pModule.fName, ") : invalid Camera index"), __LINE__);
  return camera;
}

RealCameraProperties& OXVisionVideoInput::xCheckedCamera(int pCameraIndex, const char* pBegin,
                                                         const char* pMethod) const {
  RealCameraProperties* const camera = xCamera(pCameraIndex);
  if (!camera) {
    const std::string function(pMethod, std::string(pMethod).find('('));
    report::fail(getName(), function.c_str(), pMethod,
                 report::text(pBegin, pCameraIndex, ") : invalid Camera index"), __LINE__);
  }
  return *camera;
}

boost::shared_ptr<VisionModuleInfo> OXVisionVideoInput::xSubscriber(
    const std::string& pName, Family pFamily, const report::SubscriberTexts& pTexts) const {
  const auto found = fVisionModules.find(pName);
  if (found == fVisionModules.end())
    report::fail(getName(), pTexts.function, pTexts.method,
                 report::unknownSubscriber(pTexts, pName), __LINE__);
  const bool isMulti = found->second->fIsMultiStream;
  if ((pFamily == Family::Mono && isMulti) || (pFamily == Family::Multi && !isMulti))
    report::fail(getName(), pTexts.function, pTexts.method, pTexts.wrongFamily, __LINE__);
  return found->second;
}

std::pair<std::int64_t, std::int64_t> OXVisionVideoInput::getTimeStamp(const OXImage& pImage) {
  return {pImage.fTimeStamp / 1000000, pImage.fTimeStamp % 1000000};
}

}  // namespace OX
