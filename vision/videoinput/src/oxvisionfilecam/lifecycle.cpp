// Construction, the choice of the file, opening and closing.
#include <boost/filesystem/operations.hpp>
#include <boost/make_shared.hpp>

#include <oxframework/oxclock.h>
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include <oxvalue/detail/oxfunctor.h>
#include "oxvisionfilecam.h"

namespace OX {
namespace {

constexpr int kReplayFrameRate = 30;
constexpr int kUnknownColorSpace = 255;
// The line that this error has always carried; clients match on it.
constexpr unsigned int kCannotOpenLine = 351;
constexpr const char* kSourceFile = "vision/videoinput/src/oxvisionfilecam";
constexpr unsigned int kStartedUs = 100;
constexpr unsigned int kStoppedUs = 500;
constexpr unsigned int kOpeningLookUs = 500000;
constexpr int kOpeningLooks = 2;

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

boost::shared_ptr<RealCameraProperties> makeCamera() {
  const auto camera = boost::make_shared<RealCameraProperties>();
  setSizeFromResolution(kQVGA, camera->fWidth, camera->fHeight);
  camera->fResolution = kQVGA;
  camera->fColorSpace = kYUV422;
  camera->fFrameRate = 5;
  camera->fBufferCount = 4;
  return camera;
}

}  // namespace

OXVisionFileCam::OXVisionFileCam(boost::shared_ptr<OXBroker> pBroker)
    : OXVisionVideoInput(std::move(pBroker), "OXVideoDevice") {
  xBindFileMethods();
  fNbCameras = 1;
  fCameraProperties.assign(1, makeCamera());
  for (Slot& slot : fFrames) slot = boost::make_shared<CamBuffer>();
}

OXVisionFileCam::~OXVisionFileCam() { OXVisionVideoInput::stopFrameGrabber(); }

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

void OXVisionFileCam::xReadVideo() {
  if (fVideo.readVideo(fFilePath)) return;
  log(ki::log::kError, "setVideo", "Unable to open the video file " + fFilePath);
  fVideo.closeVideo();
  throw OXError("VideoDevice", "setVideo", "unable to open the video file", "", 0);
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

// A frame says which camera took it; one that this device does not have is left out of account.
void OXVisionFileCam::xSelectCameraOf(const OXImage& pImage) {
  if (xCamera(pImage.fCameraId)) {
    fActiveCamera = pImage.fCameraId;
  } else if (!fStrangeCameraLogged.exchange(true)) {
    log(ki::log::kError, "xSelectCameraOf",
        report::text("The recording has images of camera ", static_cast<int>(pImage.fCameraId),
                     ", this device has ", fNbCameras, " camera: its own stays active"));
  }
}

// All five slots get the first image, which brings them to the format of the video. A slot that a
// subscriber still holds is left to it, and a fresh one takes its place.
bool OXVisionFileCam::xFillRing() {
  for (Slot& slot : fFrames)
    if (slot->fLockCount > 0) slot = boost::make_shared<CamBuffer>();
  bool read = false;
  for (const Slot& slot : fFrames) read = xReadFrame(slot->fImage, fCurrentImage, true);
  ++fCurrentImage;
  if (fCurrentImage > fLastImage) {
    fCurrentImage = fLoop ? fFirstImage : fLastImage;
    xReadFrame(xNext(), fCurrentImage, false);
  } else {
    fVideo.getNextFrame(xNext(), false);
  }
  ++fCurrentImage;
  return read;
}

bool OXVisionFileCam::xOpenDevice() {
  const OXCriticalSection replay(fParametersLock);
  xReadVideo();
  fLoopDuration = 0;
  fTimeOffset = 0;
  fImageServed = false;
  fReplayPeriod = INT64_MAX;
  fStrangeCameraLogged = false;
  const std::int64_t images = fStreamNumber >= 0 && fStreamNumber < fVideo.getNumberOfStreams()
                                  ? fVideo.getStream(fStreamNumber).fNumberOfImages
                                  : fVideo.getNumberOfImages();
  if (images <= 0 || fFirstImage >= images) {
    log(ki::log::kError, "xOpenDevice",
        report::text("Image ", fFirstImage, " doesn't exist. File has ", images, " images."));
    return false;
  }
  if (fLastImage >= images) fLastImage = images - 1;
  // An earlier replay may have ended behind the last image: the rule of the end of the range.
  if (fCurrentImage < 0 || fCurrentImage >= images)
    fCurrentImage = fLoop ? fFirstImage : fLastImage;
  const bool read = xFillRing();
  xSelectCameraOf(fFrames[0]->fImage);
  fFirstTimestamp = fFrames[0]->fImage.fTimeStamp;
  fStartTime = OXClock::get().localNowUs();
  return read;
}

bool OXVisionFileCam::xCloseDevice() {
  const OXCriticalSection replay(fParametersLock);
  fVideo.closeVideo();
  fDefaultResolution = -1;
  xCamera(fActiveCamera)->fGrabberState = kGrabberStopped;
  return true;
}

bool OXVisionFileCam::xStartFrameGrabber(const int& pCameraIndex) {
  RealCameraProperties* const camera = xCamera(pCameraIndex);
  if (!camera) {
    log(ki::log::kError, "xStartFrameGrabber",
        report::text("xStartFrameGrabber(", pCameraIndex, ") : invalid Camera index"));
    return false;
  }
  if (camera->fGrabberState > kGrabberStopped) return true;
  camera->fGrabberState = kGrabberOpening;
  bool opened = false;
  try {
    opened = xOpenDevice();
  } catch (...) {
    camera->fGrabberState = kGrabberFailed;
    throw;
  }
  if (!opened) {
    camera->fGrabberState = kGrabberFailed;
    log(ki::log::kError, "xStartFrameGrabber", "Can't open video file.");
    throw OXError(getName(), "startFrameGrabber", "Can't open video file.", kSourceFile,
                  kCannotOpenLine);
  }
  camera->fGrabberState = kGrabberRunning;
  ki::os::usleep(kStartedUs);
  log(ki::log::kInfo, "xStartFrameGrabber", "Done");
  return true;
}

bool OXVisionFileCam::xStopFrameGrabber(const int& pCameraIndex) {
  RealCameraProperties* const camera = xCamera(pCameraIndex);
  if (!camera) {
    log(ki::log::kError, "xStopFrameGrabber",
        report::text("xStopFrameGrabber(", pCameraIndex, ") : invalid Camera index"));
    return false;
  }
  // The lock is held for writing, as it is in a start: an opening that is seen here has failed.
  for (int look = 0; look < kOpeningLooks && camera->fGrabberState == kGrabberOpening; ++look)
    ki::os::usleep(kOpeningLookUs);
  if (camera->fGrabberState <= kGrabberClosing) return true;
  camera->fGrabberState = kGrabberClosing;
  if (!xCloseDevice()) {
    log(ki::log::kError, "xStopFrameGrabber", "Error clothing file");
    camera->fGrabberState = kGrabberFailed;
    return false;
  }
  camera->fGrabberState = kGrabberStopped;
  log(ki::log::kInfo, "xStopFrameGrabber", "File closed");
  ki::os::usleep(kStoppedUs);
  return true;
}

// An unknown camera passes: the subscription that asks about it says so in its own words.
bool OXVisionFileCam::xIsResolutionValid(int pResolution, int pCamera) const {
  const RealCameraProperties* const camera = xCamera(pCamera);
  return !camera || (pResolution >= 0 && pResolution <= camera->fResolution);
}

bool OXVisionFileCam::xIsFrameRateValid(int pFrameRate, int) const {
  return pFrameRate >= 1 && pFrameRate <= kReplayFrameRate;
}

bool OXVisionFileCam::xIsColorSpaceValid(int pColorSpace, int) const {
  return static_cast<unsigned int>(pColorSpace) <= kHSMixed;
}

}  // namespace OX
