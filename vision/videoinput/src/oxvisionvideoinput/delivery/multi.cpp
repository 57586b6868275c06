// Images of a subscriber with several streams. No sharing and no rate here: every request takes a
// new frame of each camera.
#include <boost/make_shared.hpp>
#include <cstring>

#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include "buffers/snapshots.h"
#include "oxvisionvideoinput.h"

namespace OX {
namespace {

// The first speaks of the raw operation: clients know the text so.
constexpr report::SubscriberTexts kGetImagesLocal{
    "getImagesLocal", "getImagesLocal()", "getDirectRawImagesLocal(",
    "Mono stream module can't call this method, use getImageLocal instead"};
constexpr report::SubscriberTexts kGetImagesRemote{
    "getImagesRemote", "getImagesRemote()", "getImagesRemote(",
    "Mono stream module can't call this method, use getImageRemote instead"};
constexpr report::SubscriberTexts kReleaseImages{
    "releaseImages",
    "releaseImages()",
    ": Could not release image for unknown subscriber \"",
    "Mono stream module can't call this method, use releaseImage instead",
    nullptr,
    "\""};

}  // namespace

OXVisionVideoInput::Snapshots::Snapshots(OXVisionVideoInput& pDevice,
                                         const VisionModuleInfo& pModule,
                                         const std::vector<OXImage*>& pImages) {
  for (std::size_t i = 0; i < pImages.size() && i < pModule.fActiveCameras.size(); ++i) {
    const int camera = pModule.fActiveCameras[i];
    const auto& held = pModule.fRequestedProperties[static_cast<std::size_t>(camera)]->fLockedImage;
    fViews.push_back(pImages[i] && held ? std::make_unique<OXImage>(*pImages[i], OXImage::ViewTag())
                                        : nullptr);
    if (fViews.back()) fPins.push_back(std::make_unique<ReadPin>(pDevice, camera, held));
  }
}

OXValue OXVisionVideoInput::Snapshots::join() const {
  std::size_t total = 0;
  for (const auto& view : fViews) total += view ? view->getSizeBytes() : 0;
  const auto pixels = boost::make_shared_noinit<unsigned char[]>(total ? total : 1);
  unsigned char* position = pixels.get();
  OXValue result;
  for (const auto& view : fViews) {
    if (!view) {
      result.arrayPush(OXValue::Array());
      continue;
    }
    const std::size_t size = view->getSizeBytes();
    if (size) std::memcpy(position, view->fData, size);
    position += size;
    OXImage header(*view, OXImage::ViewTag());
    header.fData = nullptr;
    OXValue description = header.toOXValue();
    description[6] = OXValue(OXValue::Array());
    result.arrayPush(std::move(description));
  }
  OXValue binary;
  binary.AdoptBinary(boost::shared_ptr<const void>(pixels, pixels.get()), pixels.get(),
                     static_cast<int>(total));
  result.arrayPush(std::move(binary));
  return result;
}

std::vector<OXImage*> OXVisionVideoInput::xGetImages(const std::string& pName) {
  const boost::shared_ptr<VisionModuleInfo> module = fVisionModules.at(pName);
  for (const int camera : module->fActiveCameras) {
    if (module->fRequestedProperties[static_cast<std::size_t>(camera)]->fLockedImage) {
      report::log(ki::log::kError, "xGetImages",
                  report::text("Previous image ", camera, " was not released"));
      return {};
    }
    xStartFrameGrabber(camera);
  }
  std::vector<OXImage*> images = xGetDirectRawImages(pName);
  if (images.empty())
    report::raise(getName(), "xGetImages()",
                  pName + " failed to get images from one or several cameras", __LINE__);
  for (std::size_t i = 0; i < images.size(); ++i) {
    if (!images[i]) continue;  // the camera had no buffer to lend: nothing is held there
    const int camera = module->fActiveCameras[i];
    const int converted = xConvertImage(camera, module, images[i]);
    if (!xReleaseDirectRawImageDeep(pName, camera))
      report::log(ki::log::kError, "xGetImages",
                  "xGetImage(" + pName + "): Unable to release raw image.");
    images[i] = converted < 0 ? nullptr : xLendConverted(camera, *module, converted);
  }
  return images;
}

OXValue OXVisionVideoInput::getImagesLocal(const std::string& pName) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  xSubscriber(pName, Family::Multi, kGetImagesLocal);
  const std::vector<OXImage*> images = xGetImages(pName);
  OXValue result;
  result.arrayReserve(static_cast<int>(images.size()));
  for (std::size_t i = 0; i < images.size(); ++i)
    result[static_cast<int>(i)] = images[i] != nullptr;
  return result;
}

OXValue OXVisionVideoInput::getImagesRemote(const std::string& pName) {
  OXValue result;
  {
    std::unique_ptr<Snapshots> snapshots;
    {
      const OXCriticalSectionWrite lock(fVisionModulesLock);
      const auto module = xSubscriber(pName, Family::Multi, kGetImagesRemote);
      const std::vector<OXImage*> images = xGetImages(pName);
      if (images.empty()) return OXValue();
      snapshots = std::make_unique<Snapshots>(*this, *module, images);
    }
    result = snapshots->join();
  }
  try {
    releaseImages(pName);
  } catch (const OXError&) {
    // The subscriber left while its pixels were copied; they are good all the same.
  }
  return result;
}

OXValue OXVisionVideoInput::releaseImages(const std::string& pName) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  const auto module = xSubscriber(pName, Family::Multi, kReleaseImages);
  std::vector<int> results;
  for (const int camera : module->fActiveCameras) {
    const bool held =
        module->fRequestedProperties[static_cast<std::size_t>(camera)]->fLockedImage != nullptr;
    xReleaseConverted(pName, *module, camera);
    results.push_back(held ? 1 : 0);
  }
  return OXValue(results);
}

}  // namespace OX
