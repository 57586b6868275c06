/// Two cameras without hardware: a simulator pushes RGB frames in, subscribers draw images out.
#pragma once

#include <string>
#include <vector>

#include "oxvisionvideoinput.h"
#include "store.h"

namespace OX {

/// A pushed frame waits until a subscriber asks; it is then converted once, on that subscriber's
/// thread, and shared. A push wakes nobody, and one that nobody asked for is overwritten two
/// pushes later.
///
/// Locks: fVisionModulesLock first, then fParametersLock, then fMutex of a camera.
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
  OXImage* xGetDirectRawImage(const std::string& pId, bool pDeepCopy) override;
  std::vector<OXImage*> xGetDirectRawImages(const std::string& pId) override;
  bool xReleaseDirectRawImageDeep(const std::string& pId, const int& pCameraIndex) override;
  // --- parameters.cpp ---
  int xGetParam(const int& pCameraIndex, const int& pParam) override;
  bool xSetParam(int pCameraIndex, int pParam, int pValue, bool pSetDefault) override;
  // --- grabber.cpp ---
  bool xStartFrameGrabber(const int& pCameraIndex) override;
  bool xStopFrameGrabber(const int& pCameraIndex) override;
  // --- push.cpp ---
  OXValue getExpectedImageParameters() override;
  bool setSimCamInputSize(const int& pWidth, const int& pHeight) override;
  bool putImage(const OXValue& pImage) override;

 protected:
  // --- acquisition.cpp ---
  AcquiredFrame xAcquireFrame(const Claim& pClaim, const char* pOperation) override;
  void xReturnRawSource(int pCameraIndex, OXVisionBuffer& pBuffer) override;

 private:
  friend class DeviceProbe;

  // --- grabber.cpp: always true ---
  bool xOpenDevice(int pCamera);
  bool xCloseDevice(int pCamera);

  // --- push.cpp: fMutex of the camera held ---
  bool xPutImage(const OXValue& pImage, const int& pCameraIndex);
  bool xSetSimCamInputSize(const int& pWidth, const int& pHeight, const int& pCameraIndex);
  const void* xAcceptedPixels(const OXValue& pImage, const CameraDriverBuffer& pStore) const;
  boost::shared_ptr<CameraDriverBuffer> xStore(int pCameraIndex) const;

  // --- acquisition.cpp ---
  /// Needs fMutex of the camera. False where the sizes allow no resampling.
  bool xReSize(const RealCameraProperties& pCamera, const CameraDriverBuffer& pStore,
               const OXImage& pSource, OXImage& pTarget);
  bool xWaitForFirstFrame(const CameraDriverBuffer& pStore, const std::string& pId);
  /// The index of the newest frame, converted, with its count raised; -1 after a record.
  int xMakeRawFrame(const Claim& pClaim, CameraDriverBuffer& pStore, const char* pOperation);

  // --- parameters.cpp ---
  bool xSetResolutionParam(int pCameraIndex, int pValue);
  bool xSetFrameRateParam(int pCameraIndex, int pValue);
  bool xSelectCamera(int pCameraIndex, int pValue);
  RealCameraProperties& xParameterCamera(int pCameraIndex, const char* pMethod) const;

  std::vector<boost::shared_ptr<CameraDriverBuffer>> fCameraDriverBuffers;  ///< one a camera
};

/// The category of most of the simulator's records; a few go to others, as their places say.
inline constexpr const char* kSimulatorCategory = "vision.oxvisionsimulatorcam";

}  // namespace OX
