#include <oxclient/oxvideodeviceproxy.h>

#include <oxframework/oxerror.h>
#include <oxframework/oxmodule.h>
#include <oxvision/ivideoinput.h>

namespace OX {
namespace {

constexpr const char* kDevice = "OXVideoDevice";

[[noreturn]] void fail(const char* pFunction, const std::string& pText, unsigned int pLine) {
  throw OXError("OXVideoDeviceProxy", pFunction, pText, "clients/cpp/oxvideodeviceproxy", pLine);
}

boost::shared_ptr<OXProxy> proxyOf(const boost::shared_ptr<OXBroker>& pBroker) {
  if (!pBroker) fail("OXVideoDeviceProxy", "There is no broker to find the device by", __LINE__);
  return pBroker->getProxy(kDevice);
}

}  // namespace

OXVideoDeviceProxy::OXVideoDeviceProxy(const boost::shared_ptr<OXBroker>& pBroker)
    : fBroker(pBroker), fIsLocal(true), fProxy(proxyOf(pBroker)) {}

OXVideoDeviceProxy::OXVideoDeviceProxy(boost::shared_ptr<OXProxy> pProxy)
    : fIsLocal(false), fProxy(std::move(pProxy)) {
  if (!fProxy) fail("OXVideoDeviceProxy", "There is no proxy to reach the device by", __LINE__);
}

// A pointer does not cross the broker: it comes from the module itself.
template <typename Operation>
OXImage* OXVideoDeviceProxy::xLocalImage(const char* pMethod, const char* pRemoteForm,
                                         Operation pOperation) {
  if (!fIsLocal)
    fail(pMethod,
         std::string("An image of another process has no pointer here, use ") + pRemoteForm +
             " instead",
         __LINE__);
  const boost::shared_ptr<OXBroker> broker = fBroker.lock();
  const boost::shared_ptr<OXModuleCore> module =
      broker ? broker->getModule(kDevice) : boost::shared_ptr<OXModuleCore>();
  IVideoInput* const device = dynamic_cast<IVideoInput*>(module.get());
  if (!device) fail(pMethod, "The device of this process is gone", __LINE__);
  return pOperation(*device);
}

int OXVideoDeviceProxy::getCameraModel(int pCameraIndex) {
  return xCall("getCameraModel", pCameraIndex).toInt();
}

bool OXVideoDeviceProxy::startFrameGrabber(int pCameraIndex) {
  return xCall("startFrameGrabber", pCameraIndex).toBool();
}

bool OXVideoDeviceProxy::stopFrameGrabber(int pCameraIndex) {
  return xCall("stopFrameGrabber", pCameraIndex).toBool();
}

bool OXVideoDeviceProxy::isFrameGrabberOff(int pCameraIndex) {
  return xCall("isFrameGrabberOff", pCameraIndex).toBool();
}

int OXVideoDeviceProxy::getFrameRate(int pCameraIndex) {
  return xCall("getFrameRate", pCameraIndex).toInt();
}

int OXVideoDeviceProxy::getResolution(int pCameraIndex) {
  return xCall("getResolution", pCameraIndex).toInt();
}

int OXVideoDeviceProxy::getColorSpace(int pCameraIndex) {
  return xCall("getColorSpace", pCameraIndex).toInt();
}

std::string OXVideoDeviceProxy::subscribeCamera(const std::string& pName, int pCameraIndex,
                                                int pResolution, int pColorSpace, int pFps) {
  return xCall("subscribeCamera", pName, pCameraIndex, pResolution, pColorSpace, pFps).toString();
}

std::string OXVideoDeviceProxy::subscribeCameras(const std::string& pName,
                                                 const std::vector<int>& pCameraIndexes,
                                                 const std::vector<int>& pResolutions,
                                                 const std::vector<int>& pColorSpaces, int pFps) {
  return xCall("subscribeCameras", pName, pCameraIndexes, pResolutions, pColorSpaces, pFps)
      .toString();
}

std::string OXVideoDeviceProxy::subscribe(const std::string& pName, int pResolution,
                                          int pColorSpace, int pFps) {
  return xCall("subscribe", pName, pResolution, pColorSpace, pFps).toString();
}

std::string OXVideoDeviceProxy::subscribe(const std::string& pName, int pCameraIndex,
                                          int pResolution, int pColorSpace, int pFps) {
  return subscribeCamera(pName, pCameraIndex, pResolution, pColorSpace, pFps);
}

std::string OXVideoDeviceProxy::subscribe(const std::string& pName,
                                          const std::vector<int>& pCameraIndexes,
                                          const std::vector<int>& pResolutions,
                                          const std::vector<int>& pColorSpaces, int pFps) {
  return subscribeCameras(pName, pCameraIndexes, pResolutions, pColorSpaces, pFps);
}

void OXVideoDeviceProxy::unsubscribe(const std::string& pName) { xCall("unsubscribe", pName); }

void OXVideoDeviceProxy::unsubscribeAllInstances(const std::string& pName) {
  xCall("unsubscribeAllInstances", pName);
}

void OXVideoDeviceProxy::onClientDisconnected(const std::string& pEventName,
                                              const OXValue& pEventContents,
                                              const std::string& pMessage) {
  xCall("onClientDisconnected", pEventName, pEventContents, pMessage);
}

int OXVideoDeviceProxy::getFrameRate(const std::string& pName) {
  return xCall("getFrameRate", pName).toInt();
}

bool OXVideoDeviceProxy::setFrameRate(const std::string& pName, int pFrameRate) {
  return xCall("setFrameRate", pName, pFrameRate).toBool();
}

int OXVideoDeviceProxy::getActiveCamera(const std::string& pName) {
  return xCall("getActiveCamera", pName).toInt();
}

bool OXVideoDeviceProxy::setActiveCamera(const std::string& pName, int pCameraIndex) {
  return xCall("setActiveCamera", pName, pCameraIndex).toBool();
}

int OXVideoDeviceProxy::getResolution(const std::string& pName) {
  return xCall("getResolution", pName).toInt();
}

bool OXVideoDeviceProxy::setResolution(const std::string& pName, int pResolution) {
  return xCall("setResolution", pName, pResolution).toBool();
}

int OXVideoDeviceProxy::getColorSpace(const std::string& pName) {
  return xCall("getColorSpace", pName).toInt();
}

bool OXVideoDeviceProxy::setColorSpace(const std::string& pName, int pColorSpace) {
  return xCall("setColorSpace", pName, pColorSpace).toBool();
}

int OXVideoDeviceProxy::getCameraParameter(const std::string& pName, int pParameterId) {
  return xCall("getCameraParameter", pName, pParameterId).toInt();
}

bool OXVideoDeviceProxy::setCameraParameter(const std::string& pName, int pParameterId,
                                            int pValue) {
  return xCall("setCameraParameter", pName, pParameterId, pValue).toBool();
}

bool OXVideoDeviceProxy::setCameraParameterToDefault(const std::string& pName, int pParameterId) {
  return xCall("setCameraParameterToDefault", pName, pParameterId).toBool();
}

OXImage* OXVideoDeviceProxy::getImageLocal(const std::string& pName) {
  return xLocalImage("getImageLocal", "getImageRemote",
                     [&](IVideoInput& pDevice) { return pDevice.getImageLocal(pName); });
}

OXValue OXVideoDeviceProxy::getImageRemote(const std::string& pName) {
  return xCall("getImageRemote", pName);
}

bool OXVideoDeviceProxy::releaseImage(const std::string& pName) {
  return xCall("releaseImage", pName).toBool();
}

OXImage* OXVideoDeviceProxy::getDirectRawImageLocal(const std::string& pName) {
  return xLocalImage("getDirectRawImageLocal", "getDirectRawImageRemote",
                     [&](IVideoInput& pDevice) { return pDevice.getDirectRawImageLocal(pName); });
}

OXValue OXVideoDeviceProxy::getDirectRawImageRemote(const std::string& pName) {
  return xCall("getDirectRawImageRemote", pName);
}

bool OXVideoDeviceProxy::releaseDirectRawImage(const std::string& pName) {
  return xCall("releaseDirectRawImage", pName).toBool();
}

std::vector<int> OXVideoDeviceProxy::getActiveCameras(const std::string& pName) {
  return xCall("getActiveCameras", pName).toIntVector();
}

std::vector<int> OXVideoDeviceProxy::setActiveCameras(const std::string& pName,
                                                      const std::vector<int>& pCameraIndexes) {
  return xCall("setActiveCameras", pName, pCameraIndexes).toIntVector();
}

std::vector<int> OXVideoDeviceProxy::getResolutions(const std::string& pName) {
  return xCall("getResolutions", pName).toIntVector();
}

std::vector<int> OXVideoDeviceProxy::setResolutions(const std::string& pName,
                                                    const std::vector<int>& pResolutions) {
  return xCall("setResolutions", pName, pResolutions).toIntVector();
}

std::vector<int> OXVideoDeviceProxy::getColorSpaces(const std::string& pName) {
  return xCall("getColorSpaces", pName).toIntVector();
}

std::vector<int> OXVideoDeviceProxy::setColorSpaces(const std::string& pName,
                                                    const std::vector<int>& pColorSpaces) {
  return xCall("setColorSpaces", pName, pColorSpaces).toIntVector();
}

std::vector<int> OXVideoDeviceProxy::getCamerasParameter(const std::string& pName,
                                                         int pParameterId) {
  return xCall("getCamerasParameter", pName, pParameterId).toIntVector();
}

std::vector<int> OXVideoDeviceProxy::setCamerasParameter(const std::string& pName, int pParameterId,
                                                         const std::vector<int>& pValues) {
  return xCall("setCamerasParameter", pName, pParameterId, pValues).toIntVector();
}

std::vector<int> OXVideoDeviceProxy::setCamerasParameterToDefault(const std::string& pName,
                                                                  int pParameterId) {
  return xCall("setCamerasParameterToDefault", pName, pParameterId).toIntVector();
}

OXValue OXVideoDeviceProxy::getImagesLocal(const std::string& pName) {
  return xCall("getImagesLocal", pName);
}

OXValue OXVideoDeviceProxy::getImagesRemote(const std::string& pName) {
  return xCall("getImagesRemote", pName);
}

std::vector<int> OXVideoDeviceProxy::releaseImages(const std::string& pName) {
  return xCall("releaseImages", pName).toIntVector();
}

OXValue OXVideoDeviceProxy::getDirectRawImagesLocal(const std::string& pName) {
  return xCall("getDirectRawImagesLocal", pName);
}

OXValue OXVideoDeviceProxy::getDirectRawImagesRemote(const std::string& pName) {
  return xCall("getDirectRawImagesRemote", pName);
}

std::vector<int> OXVideoDeviceProxy::releaseDirectRawImages(const std::string& pName) {
  return xCall("releaseDirectRawImages", pName).toIntVector();
}

bool OXVideoDeviceProxy::recordVideo(const std::string& pName, const std::string& pPath,
                                     int pTotalNumber, int pPeriod) {
  return xCall("recordVideo", pName, pPath, pTotalNumber, pPeriod).toBool();
}

bool OXVideoDeviceProxy::stopVideo(const std::string& pName) {
  return xCall("stopVideo", pName).toBool();
}

std::vector<float> OXVideoDeviceProxy::getAngularPositionFromImagePosition(
    int pCameraIndex, const std::vector<float>& pPosition) {
  return xCall("getAngularPositionFromImagePosition", pCameraIndex, pPosition).toFloatVector();
}

std::vector<float> OXVideoDeviceProxy::getImagePositionFromAngularPosition(
    int pCameraIndex, const std::vector<float>& pPosition) {
  return xCall("getImagePositionFromAngularPosition", pCameraIndex, pPosition).toFloatVector();
}

std::vector<float> OXVideoDeviceProxy::getAngularSizeFromImageSize(
    int pCameraIndex, const std::vector<float>& pSize) {
  return xCall("getAngularSizeFromImageSize", pCameraIndex, pSize).toFloatVector();
}

std::vector<float> OXVideoDeviceProxy::getImageSizeFromAngularSize(
    int pCameraIndex, const std::vector<float>& pSize) {
  return xCall("getImageSizeFromAngularSize", pCameraIndex, pSize).toFloatVector();
}

std::vector<float> OXVideoDeviceProxy::getImageInfoFromAngularInfo(
    int pCameraIndex, const std::vector<float>& pInfo) {
  return xCall("getImageInfoFromAngularInfo", pCameraIndex, pInfo).toFloatVector();
}

std::vector<float> OXVideoDeviceProxy::getImageInfoFromAngularInfoWithResolution(
    int pCameraIndex, const std::vector<float>& pInfo, int pResolution) {
  return xCall("getImageInfoFromAngularInfoWithResolution", pCameraIndex, pInfo, pResolution)
      .toFloatVector();
}

bool OXVideoDeviceProxy::putImage(int pCameraIndex, int pWidth, int pHeight,
                                  const OXValue& pImage) {
  return xCall("putImage", pCameraIndex, pWidth, pHeight, pImage).toBool();
}

bool OXVideoDeviceProxy::putImage(const OXValue& pImage) {
  return xCall("putImage", pImage).toBool();
}

OXValue OXVideoDeviceProxy::getExpectedImageParameters(int pCameraIndex) {
  return xCall("getExpectedImageParameters", pCameraIndex);
}

OXValue OXVideoDeviceProxy::getExpectedImageParameters() {
  return xCall("getExpectedImageParameters");
}

bool OXVideoDeviceProxy::setSimCamInputSize(int pWidth, int pHeight) {
  return xCall("setSimCamInputSize", pWidth, pHeight).toBool();
}

std::string OXVideoDeviceProxy::_getDirectRawImageInterprocess(const std::string& pName) {
  return xCall("_getDirectRawImageInterprocess", pName).toString();
}

int OXVideoDeviceProxy::getActiveCamera() { return xCall("getActiveCamera").toInt(); }

bool OXVideoDeviceProxy::setActiveCamera(int pCameraIndex) {
  return xCall("setActiveCamera", pCameraIndex).toBool();
}

int OXVideoDeviceProxy::getVIMResolution() { return xCall("getVIMResolution").toInt(); }

int OXVideoDeviceProxy::getVIMColorSpace() { return xCall("getVIMColorSpace").toInt(); }

int OXVideoDeviceProxy::getVIMFrameRate() { return xCall("getVIMFrameRate").toInt(); }

int OXVideoDeviceProxy::getGVMResolution(const std::string& pName) {
  return xCall("getGVMResolution", pName).toInt();
}

int OXVideoDeviceProxy::getGVMColorSpace(const std::string& pName) {
  return xCall("getGVMColorSpace", pName).toInt();
}

int OXVideoDeviceProxy::getGVMFrameRate(const std::string& pName) {
  return xCall("getGVMFrameRate", pName).toInt();
}

int OXVideoDeviceProxy::getCameraModelID() { return xCall("getCameraModelID").toInt(); }

void OXVideoDeviceProxy::setParam(int pParam, int pValue, int pCameraIndex) {
  xCall("setParam", pParam, pValue, pCameraIndex);
}

void OXVideoDeviceProxy::setParam(int pParam, int pValue) { xCall("setParam", pParam, pValue); }

int OXVideoDeviceProxy::getParam(int pParam, int pCameraIndex) {
  return xCall("getParam", pParam, pCameraIndex).toInt();
}

int OXVideoDeviceProxy::getParam(int pParam) { return xCall("getParam", pParam).toInt(); }

void OXVideoDeviceProxy::setParamDefault(int pParam) { xCall("setParamDefault", pParam); }

std::vector<float> OXVideoDeviceProxy::getAngPosFromImgPos(const std::vector<float>& pPosition) {
  return xCall("getAngPosFromImgPos", pPosition).toFloatVector();
}

std::vector<float> OXVideoDeviceProxy::getImgPosFromAngPos(const std::vector<float>& pPosition) {
  return xCall("getImgPosFromAngPos", pPosition).toFloatVector();
}

std::vector<float> OXVideoDeviceProxy::getAngSizeFromImgSize(const std::vector<float>& pSize) {
  return xCall("getAngSizeFromImgSize", pSize).toFloatVector();
}

std::vector<float> OXVideoDeviceProxy::getImgSizeFromAngSize(const std::vector<float>& pSize) {
  return xCall("getImgSizeFromAngSize", pSize).toFloatVector();
}

std::vector<float> OXVideoDeviceProxy::getImgInfoFromAngInfo(const std::vector<float>& pInfo) {
  return xCall("getImgInfoFromAngInfo", pInfo).toFloatVector();
}

std::vector<float> OXVideoDeviceProxy::getImgInfoFromAngInfoWithRes(const std::vector<float>& pInfo,
                                                                    int pResolution) {
  return xCall("getImgInfoFromAngInfoWithRes", pInfo, pResolution).toFloatVector();
}

std::vector<int> OXVideoDeviceProxy::resolutionToSizes(int pResolution) {
  return xCall("resolutionToSizes", pResolution).toIntVector();
}

int OXVideoDeviceProxy::sizesToResolution(int pWidth, int pHeight) {
  return xCall("sizesToResolution", pWidth, pHeight).toInt();
}

bool OXVideoDeviceProxy::startFrameGrabber() { return xCall("startFrameGrabber").toBool(); }

bool OXVideoDeviceProxy::stopFrameGrabber() { return xCall("stopFrameGrabber").toBool(); }

bool OXVideoDeviceProxy::isFrameGrabberOff() { return xCall("isFrameGrabberOff").toBool(); }

void OXVideoDeviceProxy::setVideo(const std::string& pFilePath, const OXValue& pRange, bool pLoop,
                                  int pReplayMode, int pStreamNumber) {
  xCall("setVideo", pFilePath, pRange, pLoop, pReplayMode, pStreamNumber);
}

void OXVideoDeviceProxy::previousImage() { xCall("previousImage"); }

void OXVideoDeviceProxy::nextImage() { xCall("nextImage"); }

void OXVideoDeviceProxy::replaySpeed(float pImagesPerSecond) {
  xCall("replaySpeed", pImagesPerSecond);
}

int OXVideoDeviceProxy::getCurrentImageNumber() { return xCall("getCurrentImageNumber").toInt(); }

}  // namespace OX
