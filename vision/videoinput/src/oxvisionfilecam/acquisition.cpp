// How a subscriber gets the current image of the replay and gives it back, and the parameters,
// which a recording has for reading only.
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include "oxvisionfilecam.h"

namespace OX {
namespace {

OXImage* refuse(const char* pFunction, const std::string& pText) {
  report::log(ki::log::kError, pFunction, pText, kFileCamCategory);
  return nullptr;
}

OXImage* refuseToLend(const std::string& pId) {
  return refuse("xGetDirectRawImage",
                "xGetDirectRawImage(" + pId + ") : error trying to find available buffer.");
}

}  // namespace

OXImage* OXVisionFileCam::xGetDirectRawImage(const std::string& pId, bool /*pDeepCopy*/) {
  constexpr const char* kFunction = "xGetDirectRawImage";
  const auto found = fVisionModules.find(pId);
  if (found == fVisionModules.end())
    return refuse(kFunction, "xGetDirectRawImage(" + pId + ") : module " + pId + " unknown!");
  const int camera = xCurrentCamera(*found->second);
  if (!xCamera(camera))
    return refuse(kFunction,
                  report::text("xGetDirectRawImage(", pId, ") : invalid Camera index ", camera));
  RequestedCameraProperties& wish =
      *found->second->fRequestedProperties[static_cast<std::size_t>(camera)];
  if (wish.fLockedImage) return refuse(kFunction, "Previous image not released");
  // Who brought no buffers has nothing to be lent by: the replay does not move for it and no frame
  // is counted as held.
  if (!wish.fHasBuffers) return refuseToLend(pId);
  Slot slot;
  {
    const OXCriticalSection replay(fParametersLock);
    if (!xAdvance(pId)) return nullptr;
    slot = fFrames[fCurrentFrame];
    ++slot->fLockCount;
  }
  xSelectCameraOf(slot->fImage);
  OXImage* const image = xLend(slot, wish);
  return image ? image : refuseToLend(pId);
}

// Null when all the camera's buffers are in use. The count of the slot stays raised then.
OXImage* OXVisionFileCam::xLend(const Slot& pSlot, RequestedCameraProperties& pWish) {
  const OXImage& frame = pSlot->fImage;
  OXVisionBuffer* const buffer = xLendFrame(fActiveCamera, frame, pSlot, pWish);
  if (!buffer) return nullptr;
  // The format too: the buffer may have been made when another video was open.
  OXImage& image = *buffer->fImage;
  image.fWidth = frame.fWidth;
  image.fHeight = frame.fHeight;
  image.setColorSpace(frame.fColorSpace);
  image.fCameraId = frame.fCameraId;
  return &image;
}

std::vector<OXImage*> OXVisionFileCam::xGetDirectRawImages(const std::string& pId) {
  refuse("xGetDirectRawImages",
         "xGetDirectRawImages(" + pId + ") : FileCam doesn't provide MultiStream Management yet");
  return {};
}

bool OXVisionFileCam::xReleaseDirectRawImageDeep(const std::string& pId, const int& pCameraIndex) {
  constexpr const char* kFunction = "xReleaseDirectRawImageDeep";
  const auto found = fVisionModules.find(pId);
  if (found == fVisionModules.end()) {
    refuse(kFunction, "ReleaseDirectRawImage(" + pId + ") : module " + pId + " unknown!");
    return false;
  }
  if (!xCamera(pCameraIndex)) {
    refuse(kFunction,
           report::text("ReleaseDirectRawImage(", pId, ") : invalid Camera index ", pCameraIndex));
    return false;
  }
  RequestedCameraProperties& wish =
      *found->second->fRequestedProperties[static_cast<std::size_t>(pCameraIndex)];
  if (wish.fLockedImage) xEndHold(pCameraIndex, wish);
  return true;
}

// The stamp of the image stays, unlike the simulator's. Converted images have no slot behind them.
void OXVisionFileCam::xReturnRawSource(int, OXVisionBuffer& pBuffer) {
  if (pBuffer.fRawSource) --static_cast<CamBuffer*>(pBuffer.fRawSource.get())->fLockCount;
  pBuffer.fRawSource.reset();
}

int OXVisionFileCam::xGetParam(const int& pCameraIndex, const int& pParam) {
  const RealCameraProperties* const camera = xCamera(pCameraIndex);
  const bool needsCamera = pParam == kCameraResolutionID || pParam == kCameraFrameRateID ||
                           pParam == kCameraColorSpaceID;
  if (needsCamera && !camera)
    throw OXError("Camera", "getParam()", "Invalid camera parameter input reference.", "", 0);
  switch (pParam) {
    case kCameraResolutionID:
      return camera->fResolution;
    case kCameraFrameRateID:
      return camera->fFrameRate;
    case kCameraSelectID:
      return fActiveCamera;
    case kCameraColorSpaceID:
      return camera->fColorSpace;
    default:
      throw OXError("OXVisionMioCam", "getParam()", "pId not handled in fileCam", "", 0);
  }
}

bool OXVisionFileCam::xSetParam(int, int, int, bool) { return true; }

}  // namespace OX
