// What a file camera publishes beside the device's own methods, and the choice of the file. Clients
// know the texts as they are, slips included.
#include <boost/filesystem/operations.hpp>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxlog.h>
#include <oxvalue/detail/oxfunctor.h>
#include "oxvisionfilecam.h"
#include "records.h"

namespace OX {
namespace {

constexpr int kUnknownColorSpace = 255;

void log(int pLevel, const char* pFunction, const std::string& pText) {
  report::log(pLevel, pFunction, pText, kFileCamCategory);
}

bool exists(const std::string& pPath) {
  boost::system::error_code error;
  const auto status = boost::filesystem::status(pPath, error);
  return pPath.find('\0') == std::string::npos &&
         status.type() != boost::filesystem::status_error &&
         status.type() != boost::filesystem::file_not_found;
}

}  // namespace

void OXVisionFileCam::xBindFileMethods() {
  constexpr const char* kClass = "OXVisionFileCam";
  const auto bindNew = [this](auto pMethod) {
    completeAndCheck(pMethod, getCurrentMethodDescription());
    bindMethod(createFunctor(this, pMethod));
  };
  functionName("setVideo", kClass, "BETA - Set the parameters to play a video.");
  addParam("filePath", " pathToMyFile/filename.oxv");
  addParam("range",
           " determines if we open the whole file (NULL) or just part of a sequence (array with "
           "beginning and end index) ");
  addParam("loop", " controls whether to loop on input sequence or on last image");
  addParam("replayMode",
           " controls replay mode :\n 0 replay at the frame rate defined by the user or image per "
           "image,\n 1 replay tries to comply with original image acquisition timestamp intervals "
           "(GVMs will lose frames if their process is too long),\n ");
  addParam("streamNumber",
           " for multi stream videos, select which stream to play. Default should be 0.");
  bindNew(&OXVisionFileCam::setVideo);

  functionName("previousImage", kClass,
               "BETA - When replaying in mode 0, ask for the previous image.");
  bindNew(&OXVisionFileCam::previousImage);

  functionName("nextImage", kClass, "BETA - When replaying in mode 0, ask for the next image.");
  bindNew(&OXVisionFileCam::nextImage);

  functionName("replaySpeed", kClass, "BETA - When replaying in mode 0, ask for the next image.");
  addParam("imagesPerSecond", " number of images per second (replay mode 0 only)");
  bindNew(&OXVisionFileCam::replaySpeed);

  functionName("getCurrentImageNumber", kClass,
               "BETA - Ask for the position of the current image.");
  setReturn("return", "Returns the index of the current image.");
  bindNew(&OXVisionFileCam::getCurrentImageNumber);

  // Three parameters, of which two are described.
  functionName("setParam", kClass, "Sets the value of a specific parameter for the video source.");
  addParam("param", "There is no parameter to set for FileCam currently.\n");
  addParam("newValue", "Parameter's new value.");
  addMethodExample("C++", "  fCamProxy->setParam(pParam, pNewValue);\n");
  using SetParam = void (OXVisionVideoInput::*)(const int&, const int&, const int&);
  constexpr SetParam kSetParam = &OXVisionVideoInput::setParam;
  completeAndCheck(kSetParam, getCurrentMethodDescription());
  bindMethodOverload(createFunctor(this, kSetParam));

  functionName("getParam", kClass, "Get the value of a video source specific parameter.");
  addParam("camID", "Index of the camera to set.");
  addParam("pParam", "Parameter's reference among kCameraSelectID,\n kCameraResolutionID");
  setReturn("pVal", "Parameter's value.");
  addMethodExample("C++", "  int value = fCamera->getParam(pParam, pCamID);\n");
  completeAndCheck(&OXVisionFileCam::getCameraParameterById, getCurrentMethodDescription());
  bindMethodOverload(createFunctor(this, &OXVisionFileCam::getCameraParameterById));
}

int OXVisionFileCam::getCameraParameterById(const int& pCameraIndex, const int& pParam) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return xGetParam(pCameraIndex, pParam);
}

void OXVisionFileCam::setVideo(const std::string& pFilePath, const OXValue& pRange,
                               const bool& pLoop, const int& pReplayMode,
                               const int& pStreamNumber) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  OXVisionVideoInput::stopFrameGrabber();
  if (!exists(pFilePath)) {
    log(ki::log::kError, "setVideo", pFilePath + " file doesn't exist. Return!");
    return;
  }
  // What can fail comes before anything is stored.
  std::int64_t first = 0;
  std::int64_t last = INT32_MAX;
  if (pRange.isArray() && pRange.getSize() == 2) {
    first = pRange[0].toInt();
    last = pRange[1].toInt();
  }
  const OXCriticalSection replay(fParametersLock);
  fFilePath = pFilePath;
  fLoop = pLoop;
  fReplayMode = pReplayMode;
  fStreamNumber = pStreamNumber;
  fFirstImage = first;
  fLastImage = last;
  fCurrentImage = first;
  xReadVideo();
  const bool known = pStreamNumber >= 0 && pStreamNumber < fVideo.getNumberOfStreams();
  const OXVideoStream stream = known ? fVideo.getStream(pStreamNumber) : OXVideoStream();
  RealCameraProperties& camera = *xCamera(fActiveCamera);
  camera.fColorSpace = static_cast<std::uint8_t>(known ? stream.fColorSpace : kUnknownColorSpace);
  camera.fResolution = static_cast<std::int8_t>(known ? stream.fResolution : -1);
  fDefaultResolution = camera.fResolution;
  camera.fFrameRate = kReplayFrameRate;
  fVideo.closeVideo();
  log(ki::log::kInfo, "setVideo", "Setting " + pFilePath + " video file.");
}

}  // namespace OX
