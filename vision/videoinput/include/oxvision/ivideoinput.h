/// The operations of the service OXVideoDevice, as a module of the same process calls them.
#pragma once

#include <string>
#include <vector>

#include <oxframework/oxapi.h>
#include <oxframework/oxvalue.h>

namespace OX {

class OXImage;

/// Conventions:
/// - pName is the id that a subscribe operation returned. A mono-stream subscriber (subscribe,
///   subscribeCamera) uses the singular operations, a multi-stream one (subscribeCameras) the
///   plural ones; each family refuses the other's subscribers.
/// - Misuse (an unknown subscriber, the wrong family, an invalid index) throws OXError. Having no
///   image is no error: null, an invalid OXValue or an empty list. A refused value is false or 0.
/// - Resolutions, colour spaces and parameter identifiers are those of oxdefinitions.h.
/// - All operations are thread-safe.
///
/// A module of the same process gets this interface from
/// dynamic_cast<OX::IVideoInput*>(broker->getModule("OXVideoDevice").get()).
class OX_API IVideoInput {
 public:
  virtual ~IVideoInput() = default;

  /// Ends a subscription. Waits up to 10 s for an image that is still held, then takes it back.
  virtual void unsubscribe(const std::string& pName) = 0;

  // What a camera is doing now. Throw for an index outside 0 .. number of cameras - 1.
  virtual int getCameraModel(const int& pCameraIndex) = 0;
  virtual bool startFrameGrabber(const int& pCameraIndex) = 0;
  virtual bool stopFrameGrabber(const int& pCameraIndex) = 0;
  virtual bool isFrameGrabberOff(const int& pCameraIndex) = 0;
  virtual int getFrameRate(const int& pCameraIndex) = 0;
  virtual int getResolution(const int& pCameraIndex) = 0;
  virtual int getColorSpace(const int& pCameraIndex) = 0;

  /// Subscribes to one camera; a negative index follows the device's active camera. Less than 5
  /// frames per second become 5, and k4VGA always gets 5 (setFrameRate can raise it).
  /// Returns the id: pName, or pName_2 to pName_8 when the name is in use.
  virtual std::string subscribeCamera(const std::string& pName, const int& pCameraIndex,
                                      const int& pResolution, const int& pColorSpace,
                                      const int& pFps) = 0;

  // Settings of a mono-stream subscriber (the frame rate: of any). The setters of a format wait
  // up to 5 s for a held image and answer false when it stays held.
  virtual int getFrameRate(const std::string& pName) = 0;
  virtual bool setFrameRate(const std::string& pName, const int& pFrameRate) = 0;
  virtual int getActiveCamera(const std::string& pName) = 0;
  virtual bool setActiveCamera(const std::string& pName, const int& pCameraIndex) = 0;
  virtual int getResolution(const std::string& pName) = 0;
  virtual bool setResolution(const std::string& pName, const int& pResolution) = 0;
  virtual int getColorSpace(const std::string& pName) = 0;
  virtual bool setColorSpace(const std::string& pName, const int& pColorSpace) = 0;
  virtual int getCameraParameter(const std::string& pName, const int& pParam) = 0;
  virtual bool setCameraParameter(const std::string& pName, const int& pParam,
                                  const int& pValue) = 0;
  virtual bool setCameraParameterToDefault(const std::string& pName, const int& pParam) = 0;

  // Images of a mono-stream subscriber. Local: a pointer into the device's buffers, valid until
  // the release, null when there is none. Remote: the array of OXImage::toOXValue(), or invalid.
  virtual OXImage* getDirectRawImageLocal(const std::string& pName) = 0;
  virtual OXValue getDirectRawImageRemote(const std::string& pName) = 0;
  virtual bool releaseDirectRawImage(const std::string& pName) = 0;
  virtual OXImage* getImageLocal(const std::string& pName) = 0;
  virtual OXValue getImageRemote(const std::string& pName) = 0;
  virtual bool releaseImage(const std::string& pName) = 0;

  /// Subscribes to several cameras at once, each in a format of its own; lists of equal length.
  virtual std::string subscribeCameras(const std::string& pName, const OXValue& pCameraIndexes,
                                       const OXValue& pResolutions, const OXValue& pColorSpaces,
                                       const int& pFps) = 0;

  // Settings of a multi-stream subscriber: arrays of ints in the order of its cameras.
  virtual OXValue getActiveCameras(const std::string& pName) = 0;
  virtual OXValue setActiveCameras(const std::string& pName, const OXValue& pCameraIndices) = 0;
  virtual OXValue getResolutions(const std::string& pName) = 0;
  virtual OXValue setResolutions(const std::string& pName, const OXValue& pResolutions) = 0;
  virtual OXValue getColorSpaces(const std::string& pName) = 0;
  virtual OXValue setColorSpaces(const std::string& pName, const OXValue& pColorSpaces) = 0;
  virtual OXValue getCamerasParameter(const std::string& pName, const int& pParam) = 0;
  virtual OXValue setCamerasParameter(const std::string& pName, const int& pParam,
                                      const OXValue& pValues) = 0;
  virtual OXValue setCamerasParameterToDefault(const std::string& pName, const int& pParam) = 0;

  // Images of a multi-stream subscriber. Local: an array of booleans. Remote: the arrays of all
  // images without their pixels, and behind them one binary with the pixels of all.
  virtual OXValue getDirectRawImagesLocal(const std::string& pName) = 0;
  virtual OXValue getDirectRawImagesRemote(const std::string& pName) = 0;
  virtual OXValue releaseDirectRawImages(const std::string& pName) = 0;
  virtual OXValue getImagesLocal(const std::string& pName) = 0;
  virtual OXValue getImagesRemote(const std::string& pName) = 0;
  virtual OXValue releaseImages(const std::string& pName) = 0;

  /// Records the raw frames behind this subscriber's requests to a .oxv file: one in pPeriod
  /// requests, pTotalNumber frames. False when the file can't be opened.
  virtual bool recordVideo(const std::string& pName, const std::string& pPath,
                           const int& pTotalNumber, const int& pPeriod) = 0;
  virtual bool stopVideo(const std::string& pName) = 0;

  // For the simulator: pushes a frame of width * height * 3 bytes, red, green, blue, rows top down.
  virtual bool putImage(const int& pCameraIndex, const int& pWidth, const int& pHeight,
                        const OXValue& pImage) = 0;
  /// [[width, height], frames per second] that the camera is set to.
  virtual OXValue getExpectedImageParameters(const int& pCameraIndex) = 0;

  // Geometry: image positions and sizes as fractions of width and height from the top left corner,
  // angles in radians from the camera's axis, positive to the left and to the bottom.
  virtual std::vector<float> getAngularPositionFromImagePosition(
      const int& pCameraIndex, const std::vector<float>& pImagePosition) = 0;
  virtual std::vector<float> getImagePositionFromAngularPosition(
      const int& pCameraIndex, const std::vector<float>& pAngularPosition) = 0;
  virtual std::vector<float> getAngularSizeFromImageSize(const int& pCameraIndex,
                                                         const std::vector<float>& pImageSize) = 0;
  virtual std::vector<float> getImageSizeFromAngularSize(
      const int& pCameraIndex, const std::vector<float>& pAngularSize) = 0;
  virtual std::vector<float> getImageInfoFromAngularInfo(
      const int& pCameraIndex, const std::vector<float>& pAngularInfo) = 0;
  virtual std::vector<float> getImageInfoFromAngularInfoWithResolution(
      const int& pCameraIndex, const std::vector<float>& pAngularInfo, const int& pResolution) = 0;

  // The older vocabulary: the device's active camera in place of a camera or a subscriber.
  virtual std::string subscribe(const std::string& pName, const int& pResolution,
                                const int& pColorSpace, const int& pFps) = 0;
  virtual void onClientDisconnected(const std::string& pEventName, const OXValue& pValue,
                                    const std::string& pSubscriberId) = 0;
  virtual void unsubscribeAllInstances(const std::string& pName) = 0;
  virtual int getActiveCamera() = 0;
  virtual int getCameraModelID() = 0;
  virtual int getResolution() = 0;
  virtual int getColorSpace() = 0;
  virtual int getFrameRate() = 0;
  virtual int getParam(const int& pParam) = 0;
  virtual void setParam(const int& pParam, const int& pValue) = 0;
  virtual void setParamDefault(const int& pParam) = 0;
  virtual bool startFrameGrabber() = 0;
  virtual bool stopFrameGrabber() = 0;
  virtual bool isFrameGrabberOff() = 0;
  virtual OXValue getExpectedImageParameters() = 0;
  virtual bool setSimCamInputSize(const int& pWidth, const int& pHeight) = 0;
  virtual bool putImage(const OXValue& pImage) = 0;
  virtual std::vector<float> getAngPosFromImgPos(const std::vector<float>& pImagePosition) = 0;
  virtual std::vector<float> getAngSizeFromImgSize(const std::vector<float>& pImageSize) = 0;
  virtual std::vector<float> getImgInfoFromAngInfo(const std::vector<float>& pAngularInfo) = 0;
  virtual std::vector<float> getImgInfoFromAngInfoWithRes(const std::vector<float>& pAngularInfo,
                                                          const int& pResolution) = 0;
  virtual std::vector<float> getImgPosFromAngPos(const std::vector<float>& pAngularPosition) = 0;
  virtual std::vector<float> getImgSizeFromAngSize(const std::vector<float>& pAngularSize) = 0;
  virtual OXValue resolutionToSizes(const int& pResolution) = 0;
  virtual int sizesToResolution(const int& pWidth, const int& pHeight) = 0;
};

}  // namespace OX
