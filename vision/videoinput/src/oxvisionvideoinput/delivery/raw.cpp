// The camera's own frames, without conversion: who holds what is the concrete camera's business.
#include <algorithm>
#include <boost/make_shared.hpp>
#include <new>
#include <optional>

#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include "buffers/readpin.h"
#include "buffers/snapshots.h"
#include "oxvisionvideoinput.h"

namespace OX {
namespace {

constexpr report::SubscriberTexts kGetLocal{
    "getDirectRawImageLocal", "getDirectRawImageLocal()", "getDirectRawImageLocal(",
    "Multi stream module can't call this method, use getDirectRawImagesLocal instead"};
constexpr report::SubscriberTexts kGetRemote{
    "getDirectRawImageRemote", "getDirectRawImageRemote()", "getDirectRawImageRemote(",
    "Multi stream module can't call this method, use getDirectRawImagesRemote instead"};
constexpr report::SubscriberTexts kRelease{
    "releaseDirectRawImage", "releaseDirectRawImage()", "releaseDirectRawImage(",
    "Multi stream module can't call this method use releaseDirectRawImages instead"};
constexpr report::SubscriberTexts kGetAllLocal{
    "getDirectRawImagesLocal", "getDirectRawImagesLocal()", "getDirectRawImagesLocal(",
    "Mono stream module can't call this method, use getDirectRawImageLocal instead\n"};
// Its first lookup speaks of the local form, its second of itself.
constexpr report::SubscriberTexts kGetAllRemote{
    "getDirectRawImagesRemote", "getDirectRawImagesRemote()", "getDirectRawImagesLocal(",
    "Mono stream module can't call this method, use getDirectRawImageRemote instead"};
constexpr report::SubscriberTexts kGetAllRemoteAgain{
    "getDirectRawImagesRemote", "getDirectRawImagesRemote()", "getDirectRawImagesRemote(",
    "Mono stream module can't call this method, use getDirectRawImageRemote instead"};
constexpr report::SubscriberTexts kReleaseAll{
    "releaseDirectRawImages", "releaseDirectRawImages()", "releaseDirectRawImages(",
    "Mono stream module can't call this method, use releaseDirectRawImage instead"};

}  // namespace

OXVisionBuffer* OXVisionVideoInput::xLendFrame(int pCameraIndex, const OXImage& pFrame,
                                               const boost::shared_ptr<void>& pSource,
                                               RequestedCameraProperties& pWish) {
  for (const auto& buffer : xCamera(pCameraIndex)->fRawBuffers) {
    if (buffer->fReadLockCount != 0 || buffer->fWriteLockCount > 0) continue;
    buffer->fImage->setExternalData(pFrame.fData, pFrame.fCapacityBytes);
    buffer->fImage->fTimeStamp = pFrame.fTimeStamp;
    buffer->fRawSource = pSource;
    ++buffer->fReadLockCount;
    pWish.fLockedImage = buffer;
    return buffer.get();
  }
  return nullptr;
}

void OXVisionVideoInput::xEndHold(int pCameraIndex, RequestedCameraProperties& pWish) {
  OXVisionBuffer& buffer = *pWish.fLockedImage;
  const bool isLastUser = buffer.fReadLockCount < 2 && buffer.fWriteLockCount < 1;
  if (isLastUser) xReturnRawSource(pCameraIndex, buffer);
  if (--buffer.fReadLockCount > 0) xReplaceRawBuffer(pCameraIndex, pWish.fLockedImage);
  pWish.fLockedImage.reset();
}

// A reply is still being copied from a raw buffer whose hold has ended: it goes on outside the pool
// until that is done. The pool has one buffer for each subscriber, so it must not be short of one.
void OXVisionVideoInput::xReplaceRawBuffer(int pCameraIndex,
                                           const boost::shared_ptr<OXVisionBuffer>& pBuffer) {
  const RealCameraProperties& camera = *xCamera(pCameraIndex);
  BufferPool& pool = xCamera(pCameraIndex)->fRawBuffers;
  const auto found = std::find(pool.begin(), pool.end(), pBuffer);
  if (found == pool.end()) return;  // a converted image, which others may share
  try {
    *found = boost::make_shared<OXVisionBuffer>(static_cast<int>(camera.fResolution),
                                                static_cast<int>(camera.fColorSpace), true);
  } catch (const std::bad_alloc&) {
    // It stays in the pool until the copy has ended.
  }
}

OXImage* OXVisionVideoInput::getDirectRawImageLocal(const std::string& pName) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const auto module = xSubscriber(pName, Family::Mono, kGetLocal);
  xCheckedCurrentCamera(*module, kGetLocal.function);
  OXImage* const image = xGetDirectRawImage(pName, false);
  if (image && module->fIsRecording) xRecord(module, *image, false);
  return image;
}

OXValue OXVisionVideoInput::getDirectRawImageRemote(const std::string& pName) {
  OXValue result;
  {
    std::optional<OXImage> view;
    std::optional<ReadPin> pin;
    {
      const OXCriticalSectionWrite lock(fVisionModulesLock);
      const auto module = xSubscriber(pName, Family::Mono, kGetRemote);
      const int camera = xCheckedCurrentCamera(*module, kGetRemote.function);
      const OXImage* const image = xGetDirectRawImage(pName, false);
      if (!image) return OXValue();
      if (module->fIsRecording) xRecord(module, *image, false);
      view.emplace(*image, OXImage::ViewTag());
      pin.emplace(*this, camera,
                  module->fRequestedProperties[static_cast<std::size_t>(camera)]->fLockedImage);
    }
    result = view->toOXValue();
  }
  try {
    releaseDirectRawImage(pName);
  } catch (const OXError&) {
    // The subscriber left while its pixels were copied; they are good all the same.
  }
  return result;
}

bool OXVisionVideoInput::releaseDirectRawImage(const std::string& pName) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const auto module = xSubscriber(pName, Family::Mono, kRelease);
  if (module->fActiveCamera != -1) return xReleaseDirectRawImageDeep(pName, module->fActiveCamera);
  bool released = true;
  for (int i = 0; i < fNbCameras && released; ++i) released = xReleaseDirectRawImageDeep(pName, i);
  return released;
}

OXValue OXVisionVideoInput::getDirectRawImagesLocal(const std::string& pName) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  xSubscriber(pName, Family::Multi, kGetAllLocal);
  const std::vector<OXImage*> images = xGetDirectRawImages(pName);
  OXValue result;
  result.arrayReserve(static_cast<int>(images.size()));
  for (std::size_t i = 0; i < images.size(); ++i)
    result[static_cast<int>(i)] = images[i] != nullptr;
  return result;
}

OXValue OXVisionVideoInput::getDirectRawImagesRemote(const std::string& pName) {
  OXValue result;
  {
    std::unique_ptr<Snapshots> snapshots;
    {
      const OXCriticalSectionWrite lock(fVisionModulesLock);
      const auto module = xSubscriber(pName, Family::Multi, kGetAllRemote);
      const std::vector<OXImage*> images = xGetDirectRawImages(pName);
      if (images.empty()) return OXValue();
      snapshots = std::make_unique<Snapshots>(*this, *module, images);
    }
    result = snapshots->join();
  }
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  xSubscriber(pName, Family::Any, kGetAllRemoteAgain);
  for (int i = 0; i < fNbCameras; ++i) xReleaseDirectRawImageDeep(pName, i);
  return result;
}

OXValue OXVisionVideoInput::releaseDirectRawImages(const std::string& pName) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const auto module = xSubscriber(pName, Family::Multi, kReleaseAll);
  std::vector<int> results;
  for (const int camera : module->fActiveCameras)
    results.push_back(xReleaseDirectRawImageDeep(pName, camera) ? 1 : 0);
  return OXValue(results);
}

// No shared memory is made: the name is all that old clients get.
std::string OXVisionVideoInput::getDirectRawImageInterprocess(const std::string& pName) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const auto found = fVisionModules.find(pName);
  if (found == fVisionModules.end()) {
    report::log(ki::log::kError, "getDirectRawImageInterprocess",
                "getDirectRawImageInterprocess(" + pName + ") : module " + pName + " unknown!\n");
    return "";
  }
  const boost::shared_ptr<VisionModuleInfo> module = found->second;
  const int camera = xCheckedCurrentCamera(*module, "getDirectRawImageInterprocess");
  const bool taken = xGetDirectRawImage(pName, false) != nullptr;
  // The release below refuses a multi-stream subscriber: what this call took goes back first.
  if (taken && module->fIsMultiStream) xReleaseDirectRawImageDeep(pName, camera);
  releaseDirectRawImage(pName);
  return "lastVideoBuffer";
}

}  // namespace OX
