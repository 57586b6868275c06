/// Two cameras without hardware: a simulator pushes RGB frames, subscribers take images.
#pragma once

#include <string>
#include <vector>

#include "oxvisionvideoinput.h"
#include "store.h"

namespace OX {

/// A pushed frame is kept until a subscriber asks; it is then converted once, on that subscriber's
/// thread, and shared. A push wakes nobody, and a frame that nobody asked for is overwritten two
/// pushes later. The broker owns the module; public operations are thread-safe and described in
/// ivideoinput.h.
///
/// Locks: fVisionModulesLock first, then fParametersLock, which is held while a parameter is set,
/// then fMutex of a camera. putImage takes only the last: a push waits for a conversion at most.
class OXVisionSimulatorCam final : public OXSingleton<OXVisionSimulatorCam>,
                                   public OXVisionVideoInput {
 public:
  explicit OXVisionSimulatorCam(boost::shared_ptr<OXBroker> pBroker);
  ~OXVisionSimulatorCam() override;

  // --- push.cpp ---
  using OXVisionVideoInput::putImage;
  bool putImage(const int& pCameraIndex, const int& pWidth, const int& pHeight,
                const OXValue& pImage) override;
  OXValue getExpectedImageParameters(const int& pCameraIndex) override;

  // --- validity.cpp ---
  bool xIsResolutionValid(int pResolution, int pCamera) const override;
  bool xIsFrameRateValid(int pFrameRate, int pCamera) const override;
  bool xIsColorSpaceValid(int pColorSpace, int pCamera) const override;
  // --- acquisition.cpp ---
  OXImage* xGetDirectRawImage(const std::string& pId, bool pDeepCopy)
      OX_REQUIRES(fVisionModulesLock) override;
  std::vector<OXImage*> xGetDirectRawImages(const std::string& pId)
      OX_REQUIRES(fVisionModulesLock) override;
  bool xReleaseDirectRawImageDeep(const std::string& pId, const int& pCameraIndex)
      OX_REQUIRES(fVisionModulesLock) override;
  // --- parameters.cpp ---
  int xGetParam(const int& pCameraIndex, const int& pParam)
      OX_REQUIRES_SHARED(fVisionModulesLock) override;
  bool xSetParam(int pCameraIndex, int pParam, int pValue, bool pSetDefault)
      OX_REQUIRES(fVisionModulesLock) override;
  // --- grabber.cpp ---
  bool xStartFrameGrabber(const int& pCameraIndex) OX_REQUIRES(fVisionModulesLock) override;
  bool xStopFrameGrabber(const int& pCameraIndex) OX_REQUIRES(fVisionModulesLock) override;
  // --- push.cpp ---
  OXValue getExpectedImageParameters() override;
  bool setSimCamInputSize(const int& pWidth, const int& pHeight) override;
  bool putImage(const OXValue& pImage) override;

 protected:
  // --- acquisition.cpp ---
  AcquiredFrame xAcquireFrame(const Claim& pClaim, const char* pOperation)
      OX_REQUIRES(fVisionModulesLock) override;
  void xReturnRawSource(int pCameraIndex, OXVisionBuffer& pBuffer)
      OX_REQUIRES(fVisionModulesLock) override;

 private:
  friend class DeviceProbe;

  // --- grabber.cpp: always true ---
  bool xOpenDevice(int pCamera) OX_REQUIRES(fVisionModulesLock);
  bool xCloseDevice(int pCamera) OX_REQUIRES(fVisionModulesLock);

  // --- push.cpp ---
  bool xPutImage(const OXValue& pImage, CameraDriverBuffer& pStore) OX_REQUIRES(pStore.fMutex);
  bool xSetSimCamInputSize(const int& pWidth, const int& pHeight, CameraDriverBuffer& pStore)
      OX_REQUIRES(pStore.fMutex);
  /// The pixels to copy, borrowed from pImage; null when they are refused.
  const void* xAcceptedPixels(const OXValue& pImage, const CameraDriverBuffer& pStore) const
      OX_REQUIRES(pStore.fMutex);
  /// Null for a camera that does not exist.
  boost::shared_ptr<CameraDriverBuffer> xStore(int pCameraIndex) const;

  // --- acquisition.cpp ---
  /// False if the sizes allow no resampling.
  bool xReSize(const RealCameraProperties& pCamera, const CameraDriverBuffer& pStore,
               const OXImage& pSource, OXImage& pTarget) OX_REQUIRES(pStore.fMutex);
  /// Waits up to a second; false, after a record, if no frame was pushed.
  bool xWaitForFirstFrame(const CameraDriverBuffer& pStore, const std::string& pId);
  /// The index of the newest frame, converted, with its read count raised; -1 if it can't be had.
  int xMakeRawFrame(const Claim& pClaim, CameraDriverBuffer& pStore, const char* pOperation)
      OX_REQUIRES(fVisionModulesLock);

  // --- parameters.cpp ---
  bool xSetResolutionParam(int pCameraIndex, int pValue) OX_REQUIRES(fVisionModulesLock);
  bool xSetFrameRateParam(int pCameraIndex, int pValue) OX_REQUIRES(fVisionModulesLock);
  bool xSelectCamera(int pCameraIndex, int pValue) OX_REQUIRES(fVisionModulesLock);
  RealCameraProperties& xParameterCamera(int pCameraIndex, const char* pMethod) const;

  std::vector<boost::shared_ptr<CameraDriverBuffer>> fCameraDriverBuffers;  ///< one a camera
};

/// The category of most of the simulator's records; a few use others, which clients filter by.
inline constexpr const char* kSimulatorCategory = "vision.oxvisionsimulatorcam";

}  // namespace OX
