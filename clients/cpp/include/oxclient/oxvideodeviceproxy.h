/// The service OXVideoDevice with types, for programs and modules in C++.
#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <string>
#include <vector>

#include <oxframework/oxbroker.h>
#include <oxframework/oximage.h>
#include <oxframework/oxproxies.h>
#include <oxframework/oxvalue.h>

namespace OX {

/// One method for each publication of the device, under its name, with the same arguments in the
/// same order; docs/reference.md tells what each does and which errors it raises. Every method
/// throws the OXError of the device, or that of the way to it: a lost connection, no such module.
///
/// From a broker it speaks to the device of the same process, and images can be had without a copy.
/// From a proxy (OXRemoteBroker::getProxy("OXVideoDevice")) it speaks to the device of another
/// process: getImageLocal and getDirectRawImageLocal throw then and leave the device alone; the
/// Remote forms give the pixels.
///
/// Thread-safe. It keeps a remote connection, and no broker: a broker that has ended is an OXError.
class OXVideoDeviceProxy {
 public:
  /// Throw OXError for null and, with a broker, when it has no module "OXVideoDevice".
  explicit OXVideoDeviceProxy(const boost::shared_ptr<OXBroker>& pBroker);
  explicit OXVideoDeviceProxy(boost::shared_ptr<OXProxy> pProxy);

  // A camera by its index.
  int getCameraModel(int pCameraIndex);
  bool startFrameGrabber(int pCameraIndex);
  bool stopFrameGrabber(int pCameraIndex);
  bool isFrameGrabberOff(int pCameraIndex);
  int getFrameRate(int pCameraIndex);
  int getResolution(int pCameraIndex);
  int getColorSpace(int pCameraIndex);

  // Coming and going. The two longer forms of subscribe are subscribeCamera and subscribeCameras
  // under the name that the published examples use.
  std::string subscribeCamera(const std::string& pName, int pCameraIndex, int pResolution,
                              int pColorSpace, int pFps);
  std::string subscribeCameras(const std::string& pName, const std::vector<int>& pCameraIndexes,
                               const std::vector<int>& pResolutions,
                               const std::vector<int>& pColorSpaces, int pFps);
  std::string subscribe(const std::string& pName, int pResolution, int pColorSpace, int pFps);
  std::string subscribe(const std::string& pName, int pCameraIndex, int pResolution,
                        int pColorSpace, int pFps);
  std::string subscribe(const std::string& pName, const std::vector<int>& pCameraIndexes,
                        const std::vector<int>& pResolutions, const std::vector<int>& pColorSpaces,
                        int pFps);
  void unsubscribe(const std::string& pName);
  void unsubscribeAllInstances(const std::string& pName);
  void onClientDisconnected(const std::string& pEventName, const OXValue& pEventContents,
                            const std::string& pMessage);

  // Settings of a subscriber with one stream; the frame rate is that of any subscriber.
  int getFrameRate(const std::string& pName);
  bool setFrameRate(const std::string& pName, int pFrameRate);
  int getActiveCamera(const std::string& pName);
  bool setActiveCamera(const std::string& pName, int pCameraIndex);
  int getResolution(const std::string& pName);
  bool setResolution(const std::string& pName, int pResolution);
  int getColorSpace(const std::string& pName);
  bool setColorSpace(const std::string& pName, int pColorSpace);
  int getCameraParameter(const std::string& pName, int pParameterId);
  bool setCameraParameter(const std::string& pName, int pParameterId, int pValue);
  bool setCameraParameterToDefault(const std::string& pName, int pParameterId);

  // Images of a subscriber with one stream. Local: into the device's own buffers, borrowed until
  // the release; null when there is no image. Remote: invalid when there is no image.
  OXImage* getImageLocal(const std::string& pName);
  OXValue getImageRemote(const std::string& pName);
  bool releaseImage(const std::string& pName);
  OXImage* getDirectRawImageLocal(const std::string& pName);
  OXValue getDirectRawImageRemote(const std::string& pName);
  bool releaseDirectRawImage(const std::string& pName);

  // Settings of a subscriber with several streams: one number for each stream. The setters tell for
  // each stream whether it was set: 1 or 0.
  std::vector<int> getActiveCameras(const std::string& pName);
  std::vector<int> setActiveCameras(const std::string& pName,
                                    const std::vector<int>& pCameraIndexes);
  std::vector<int> getResolutions(const std::string& pName);
  std::vector<int> setResolutions(const std::string& pName, const std::vector<int>& pResolutions);
  std::vector<int> getColorSpaces(const std::string& pName);
  std::vector<int> setColorSpaces(const std::string& pName, const std::vector<int>& pColorSpaces);
  std::vector<int> getCamerasParameter(const std::string& pName, int pParameterId);
  std::vector<int> setCamerasParameter(const std::string& pName, int pParameterId,
                                       const std::vector<int>& pValues);
  std::vector<int> setCamerasParameterToDefault(const std::string& pName, int pParameterId);

  // Images of a subscriber with several streams. Local: for each stream whether its image is held
  // now, until the release. Remote: an array for each stream, and one binary with the pixels of
  // all behind them; invalid when there are no images. The releases: 1 or 0 for each stream.
  OXValue getImagesLocal(const std::string& pName);
  OXValue getImagesRemote(const std::string& pName);
  std::vector<int> releaseImages(const std::string& pName);
  OXValue getDirectRawImagesLocal(const std::string& pName);
  OXValue getDirectRawImagesRemote(const std::string& pName);
  std::vector<int> releaseDirectRawImages(const std::string& pName);

  // Recording; the path is one of the device's machine.
  bool recordVideo(const std::string& pName, const std::string& pPath, int pTotalNumber,
                   int pPeriod);
  bool stopVideo(const std::string& pName);

  // Geometry: positions and sizes as fractions of the image, angles in radians.
  std::vector<float> getAngularPositionFromImagePosition(int pCameraIndex,
                                                         const std::vector<float>& pPosition);
  std::vector<float> getImagePositionFromAngularPosition(int pCameraIndex,
                                                         const std::vector<float>& pPosition);
  std::vector<float> getAngularSizeFromImageSize(int pCameraIndex, const std::vector<float>& pSize);
  std::vector<float> getImageSizeFromAngularSize(int pCameraIndex, const std::vector<float>& pSize);
  std::vector<float> getImageInfoFromAngularInfo(int pCameraIndex, const std::vector<float>& pInfo);
  std::vector<float> getImageInfoFromAngularInfoWithResolution(int pCameraIndex,
                                                               const std::vector<float>& pInfo,
                                                               int pResolution);

  // For the simulator: frames of width * height * 3 bytes, red, green, blue, rows top down.
  bool putImage(int pCameraIndex, int pWidth, int pHeight, const OXValue& pImage);
  bool putImage(const OXValue& pImage);
  OXValue getExpectedImageParameters(int pCameraIndex);
  OXValue getExpectedImageParameters();
  bool setSimCamInputSize(int pWidth, int pHeight);

  // The older vocabulary: the device's active camera in place of a camera or a subscriber.
  std::string _getDirectRawImageInterprocess(const std::string& pName);
  int getActiveCamera();
  bool setActiveCamera(int pCameraIndex);
  int getVIMResolution();
  int getVIMColorSpace();
  int getVIMFrameRate();
  int getGVMResolution(const std::string& pName);
  int getGVMColorSpace(const std::string& pName);
  int getGVMFrameRate(const std::string& pName);
  int getCameraModelID();
  void setParam(int pParam, int pValue, int pCameraIndex);
  void setParam(int pParam, int pValue);
  int getParam(int pParam, int pCameraIndex);
  int getParam(int pParam);
  void setParamDefault(int pParam);
  std::vector<float> getAngPosFromImgPos(const std::vector<float>& pPosition);
  std::vector<float> getImgPosFromAngPos(const std::vector<float>& pPosition);
  std::vector<float> getAngSizeFromImgSize(const std::vector<float>& pSize);
  std::vector<float> getImgSizeFromAngSize(const std::vector<float>& pSize);
  std::vector<float> getImgInfoFromAngInfo(const std::vector<float>& pInfo);
  std::vector<float> getImgInfoFromAngInfoWithRes(const std::vector<float>& pInfo, int pResolution);
  std::vector<int> resolutionToSizes(int pResolution);
  int sizesToResolution(int pWidth, int pHeight);
  bool startFrameGrabber();
  bool stopFrameGrabber();
  bool isFrameGrabberOff();

  // A device that replays a file has these; any other raises that it has no such method. pRange is
  // an array [first, last], or invalid for the whole file.
  void setVideo(const std::string& pFilePath, const OXValue& pRange, bool pLoop, int pReplayMode,
                int pStreamNumber);
  void previousImage();
  void nextImage();
  void replaySpeed(float pImagesPerSecond);
  int getCurrentImageNumber();

 private:
  template <typename... Arguments>
  OXValue xCall(const char* pMethod, const Arguments&... pArguments) {
    return fProxy->call(pMethod, pArguments...);
  }
  template <typename Operation>
  OXImage* xLocalImage(const char* pMethod, const char* pRemoteForm, Operation pOperation);

  boost::weak_ptr<OXBroker> fBroker;
  bool fIsLocal;
  boost::shared_ptr<OXProxy> fProxy;
};

}  // namespace OX
