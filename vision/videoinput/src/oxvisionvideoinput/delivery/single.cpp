// Images of a subscriber with one stream. A request does not always cost a conversion: a converted
// image that is young enough is shared, else a raw one that is, and only then is the camera asked.
#include <algorithm>
#include <optional>

#include <oxframework/oxclock.h>
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include "buffers/readpin.h"
#include "oxvisionvideoinput.h"

namespace OX {
namespace {

constexpr report::SubscriberTexts kGetImageLocal{
    "getImageLocal", "getImageLocal()", "getImageLocal(",
    "Multi stream module can't call this method, use getImagesLocal instead"};
// These two speak of the raw operations: clients know the texts so.
constexpr report::SubscriberTexts kGetImageRemote{
    "getImageRemote", "getImageRemote()", "getDirectRawImageRemote(",
    "Multi stream module can't call this method, use getDirectRawImagesRemote instead"};
constexpr report::SubscriberTexts kReleaseImage{
    "releaseImage", "releaseImage()", "releaseImage(",
    "Multi stream module can't call this method, use releaseDirectRawImages instead"};

std::int64_t nowUs() {
  ::timeval now{};
  ki::os::gettimeofday(&now);
  return std::int64_t{now.tv_sec} * 1000000 + now.tv_usec;
}

std::int64_t periodMs(const VisionModuleInfo& pModule) {
  return 1000 / std::max<int>(pModule.fFrameRate, 1);
}

// No older than one period of the subscriber's rate, in whole milliseconds; each part is
// truncated on its own.
bool isFresh(const OXImage& pImage, std::int64_t pNowUs, const VisionModuleInfo& pModule) {
  const auto [seconds, micros] = OXVisionVideoInput::getTimeStamp(pImage);
  const std::int64_t nowSeconds = pNowUs / 1000000;
  const std::int64_t nowMicros = pNowUs % 1000000;
  return seconds * 1000 - nowSeconds * 1000 + micros / 1000 - nowMicros / 1000 +
             periodMs(pModule) >=
         0;
}

// Narrower on purpose: a raw image of the previous second is never reused, however young.
bool isFreshInThisSecond(const OXImage& pImage, std::int64_t pNowUs,
                         const VisionModuleInfo& pModule) {
  return OXVisionVideoInput::getTimeStamp(pImage).first == pNowUs / 1000000 &&
         isFresh(pImage, pNowUs, pModule);
}

}  // namespace

OXImage* OXVisionVideoInput::getImageLocal(const std::string& pName) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const auto module = xSubscriber(pName, Family::Mono, kGetImageLocal);
  xCheckedCurrentCamera(*module, kGetImageLocal.function);
  return xGetImage(pName);
}

OXValue OXVisionVideoInput::getImageRemote(const std::string& pName) {
  OXValue result;
  {
    std::optional<OXImage> view;
    std::optional<ReadPin> pin;
    {
      const OXCriticalSectionWrite lock(fVisionModulesLock);
      const auto module = xSubscriber(pName, Family::Mono, kGetImageRemote);
      const int camera = xCheckedCurrentCamera(*module, kGetImageRemote.function);
      const OXImage* const image = xGetImage(pName);
      if (!image) return OXValue();
      view.emplace(*image, OXImage::ViewTag());
      pin.emplace(*this, camera,
                  module->fRequestedProperties[static_cast<std::size_t>(camera)]->fLockedImage);
    }
    result = view->toOXValue();
  }
  try {
    releaseImage(pName);
  } catch (const OXError&) {
    // The subscriber left while its pixels were copied; they are good all the same.
  }
  return result;
}

bool OXVisionVideoInput::releaseImage(const std::string& pName) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const auto module = xSubscriber(pName, Family::Mono, kReleaseImage);
  if (module->fActiveCamera == -1)
    for (int i = 0; i < fNbCameras; ++i) xReleaseConverted(pName, *module, i);
  else
    xReleaseConverted(pName, *module, module->fActiveCamera);
  return true;
}

// What is not in the pool of converted images was lent by the camera, which has its own count.
void OXVisionVideoInput::xReleaseConverted(const std::string& pName, VisionModuleInfo& pModule,
                                           int pCamera) {
  RequestedCameraProperties& wish =
      *pModule.fRequestedProperties[static_cast<std::size_t>(pCamera)];
  if (!wish.fLockedImage) return;
  const BufferPool& pool = xCamera(pCamera)->fImageBuffers;
  if (std::find(pool.begin(), pool.end(), wish.fLockedImage) == pool.end()) {
    xReleaseDirectRawImageDeep(pName, pCamera);
    return;
  }
  --wish.fLockedImage->fReadLockCount;
  wish.fLockedImage.reset();
}

// Takes over the read count that the conversion or the search left on the buffer.
OXImage* OXVisionVideoInput::xLendConverted(int pCamera, VisionModuleInfo& pModule,
                                            int pBufferIndex) {
  const auto& buffer = xCamera(pCamera)->fImageBuffers[static_cast<std::size_t>(pBufferIndex)];
  pModule.fRequestedProperties[static_cast<std::size_t>(pCamera)]->fLockedImage = buffer;
  return buffer->fImage.get();
}

OXImage* OXVisionVideoInput::xReuseConvertedImage(int pCamera, VisionModuleInfo& pModule,
                                                  std::int64_t pNowUs) {
  const RequestedCameraProperties& wish =
      *pModule.fRequestedProperties[static_cast<std::size_t>(pCamera)];
  int width = 0;
  int height = 0;
  setSizeFromResolution(wish.fResolution, width, height);
  const int index = xLockTheNewestBufferForReading(static_cast<std::int8_t>(pCamera), width, height,
                                                   wish.fColorSpace);
  if (index < 0) return nullptr;
  OXVisionBuffer& buffer = *xCamera(pCamera)->fImageBuffers[static_cast<std::size_t>(index)];
  if (isFresh(*buffer.fImage, pNowUs, pModule)) return xLendConverted(pCamera, pModule, index);
  --buffer.fReadLockCount;
  return nullptr;
}

// True when a raw image was young enough: pImage is then the result, null if it could not be
// converted. A raw buffer counts only while it is lent: after that its pixels may change.
bool OXVisionVideoInput::xReuseRawImage(int pCamera,
                                        const boost::shared_ptr<VisionModuleInfo>& pModule,
                                        std::int64_t pNowUs, OXImage*& pImage) {
  const int index = xLockTheNewestBufferForReading(static_cast<std::int8_t>(pCamera));
  if (index < 0) return false;
  const auto raw = xCamera(pCamera)->fRawBuffers[static_cast<std::size_t>(index)];
  const bool fresh = raw->fRawSource && isFreshInThisSecond(*raw->fImage, pNowUs, *pModule);
  if (fresh) {
    const int converted = xConvertImage(pCamera, pModule, raw->fImage.get());
    pImage = converted < 0 ? nullptr : xLendConverted(pCamera, *pModule, converted);
  }
  --raw->fReadLockCount;
  return fresh;
}

void OXVisionVideoInput::xReleaseRawImages(const VisionModuleInfo& pModule) {
  bool released = true;
  if (pModule.fActiveCamera != -1)
    released = xReleaseDirectRawImageDeep(pModule.fName, pModule.fActiveCamera);
  else
    for (int i = 0; i < fNbCameras && released; ++i)
      released = xReleaseDirectRawImageDeep(pModule.fName, i);
  if (!released)
    report::log(ki::log::kError, "xGetImage",
                "xGetImage(" + pModule.fName + "): Unable to release raw image(s).");
}

OXImage* OXVisionVideoInput::xGetImage(const std::string& pName) {
  const boost::shared_ptr<VisionModuleInfo> module = fVisionModules.at(pName);
  const int camera = xCurrentCamera(*module);
  if (module->fRequestedProperties[static_cast<std::size_t>(camera)]->fLockedImage)
    report::fail(getName(), "xGetImage", "xGetImage",
                 report::text(pName, " previous image for camera ", camera, " was not released !"),
                 __LINE__);
  xStartFrameGrabber(camera);
  const std::int64_t now = nowUs();
  if (OXImage* const shared = xReuseConvertedImage(camera, *module, now)) return shared;
  OXImage* fromRaw = nullptr;
  if (xReuseRawImage(camera, module, now, fromRaw)) return fromRaw;

  const OXImage* const raw = xGetDirectRawImage(pName, true);
  if (!raw) {
    report::log(
        ki::log::kInfo, "xGetImage",
        "xGetImage(" + pName + "): Failed to get a new raw image for subscriber \"" + pName + "\"");
    return nullptr;
  }
  const int converted = xConvertImage(camera, module, raw);
  if (xCurrentCamera(*module) != camera)
    report::log(ki::log::kError, "xGetImage",
                "xGetImage(" + pName + "): Module active camera change!");
  xReleaseRawImages(*module);
  return converted < 0 ? nullptr : xLendConverted(camera, *module, converted);
}

}  // namespace OX
