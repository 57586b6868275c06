// What a file camera publishes besides the device's own methods, and how it selects its file. The
// texts are an interface and stay as they are, slips included.
#include <boost/filesystem/operations.hpp>
#include <optional>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxlog.h>
#include <oxvalue/detail/publication.h>
#include "camerarecord.h"
#include "oxvisionfilecam.h"

namespace OX {
namespace {

// What a stream that the file does not have leaves in the camera's record, which is a byte.
constexpr int kUnknownColorSpace = 255;

void log(int pLevel, const char* pFunction, const std::string& pText) {
  report::log(pLevel, pFunction, pText, kFileCamCategory);
}

// A path with a zero byte would be cut short by the system and might name another file.
bool exists(const std::string& pPath) {
  boost::system::error_code error;
  const auto status = boost::filesystem::status(pPath, error);
  return pPath.find('\0') == std::string::npos &&
         status.type() != boost::filesystem::status_error &&
         status.type() != boost::filesystem::file_not_found;
}

}  // namespace

// Bound after the core's own, in the constructor: the two methods below that the core publishes too
// win a call with the same number and kinds of arguments.
void OXVisionFileCam::xBindFileMethods() {
  using Camera = OXVisionFileCam;
  publish(bindPublications(
      this, "OXVisionFileCam",
      std::vector<OXPublication<Camera>>{
          {.name = "setVideo",
           .description = "BETA - Set the parameters to play a video.",
           .method = operation(&Camera::setVideo),
           .parameters = {{"filePath", " pathToMyFile/filename.oxv"},
                          {"range",
                           " determines if we open the whole file (NULL) or just part of a "
                           "sequence (array with beginning and end index) "},
                          {"loop", " controls whether to loop on input sequence or on last image"},
                          {"replayMode",
                           " controls replay mode :\n 0 replay at the frame rate defined by the "
                           "user or image per image,\n 1 replay tries to comply with original "
                           "image acquisition timestamp intervals (GVMs will lose frames if their "
                           "process is too long),\n "},
                          {"streamNumber",
                           " for multi stream videos, select which stream to play. Default should "
                           "be 0."}}},
          {.name = "previousImage",
           .description = "BETA - When replaying in mode 0, ask for the previous image.",
           .method = operation(&Camera::previousImage)},
          {.name = "nextImage",
           .description = "BETA - When replaying in mode 0, ask for the next image.",
           .method = operation(&Camera::nextImage)},
          // The text of nextImage, although this sets a speed: clients know it so.
          {.name = "replaySpeed",
           .description = "BETA - When replaying in mode 0, ask for the next image.",
           .method = operation(&Camera::replaySpeed),
           .parameters = {{"imagesPerSecond",
                           " number of images per second (replay mode 0 only)"}}},
          {.name = "getCurrentImageNumber",
           .description = "BETA - Ask for the position of the current image.",
           .method = operation(&Camera::getCurrentImageNumber),
           .result = {"return", "Returns the index of the current image."}},
          // It has three parameters, of which two are described: clients know it so.
          {.name = "setParam",
           .description = "Sets the value of a specific parameter for the video source.",
           .method = operation<OXVisionVideoInput, void, const int&, const int&, const int&>(
               &OXVisionVideoInput::setParam),
           .parameters = {{"param", "There is no parameter to set for FileCam currently.\n"},
                          {"newValue", "Parameter's new value."}},
           .examples = {{"C++", "  fCamProxy->setParam(pParam, pNewValue);\n"}}},
          {.name = "getParam",
           .description = "Get the value of a video source specific parameter.",
           // The camera comes first, unlike in the core's getParam, which this one hides.
           .method = operation(&Camera::getCameraParameterById),
           .parameters = {{"camID", "Index of the camera to set."},
                          {"pParam",
                           "Parameter's reference among kCameraSelectID,\n kCameraResolutionID"}},
           .result = {"pVal", "Parameter's value."},
           .examples = {{"C++", "  int value = fCamera->getParam(pParam, pCamID);\n"}}},
      }));
}

int OXVisionFileCam::getCameraParameterById(const int& pCameraIndex, const int& pParam) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  return xGetParam(pCameraIndex, pParam);
}

bool OXVisionFileCam::xExists(const std::string& pPath) {
  const OXCriticalSectionPause pause(fVisionModulesLock);
  return exists(pPath);
}

// The file is opened only to learn its format: the grabber opens it again.
std::optional<OXVideoStream> OXVisionFileCam::xReadFormat() {
  const OXCriticalSectionPause pause(fVisionModulesLock);
  xReadVideo();
  std::optional<OXVideoStream> stream;
  if (fStreamNumber >= 0 && fStreamNumber < fVideo.getNumberOfStreams())
    stream = fVideo.getStream(fStreamNumber);
  fVideo.closeVideo();
  return stream;
}

void OXVisionFileCam::setVideo(const std::string& pFilePath, const OXValue& pRange,
                               const bool& pLoop, const int& pReplayMode,
                               const int& pStreamNumber) {
  xSetVideo(pFilePath, pRange, pLoop, pReplayMode, pStreamNumber);
  xTellFrame(0);
}

void OXVisionFileCam::xSetVideo(const std::string& pFilePath, const OXValue& pRange, bool pLoop,
                                int pReplayMode, int pStreamNumber) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  // Nobody starts the replay before the new settings are complete.
  const TurnScope cameras(fCamerasTurn, fVisionModulesLock);
  // Before the file is looked for: a missing one stops the replay too. Clients know it so.
  OXVisionVideoInput::stopFrameGrabber();
  if (!xExists(pFilePath)) {
    log(ki::log::kError, "setVideo", pFilePath + " file doesn't exist. Return!");
    return;
  }
  // A range of anything but integers throws, hence before anything is changed. A file that can't be
  // read throws further down, with the settings stored.
  std::int64_t first = 0;
  std::int64_t last = INT32_MAX;
  if (pRange.isArray() && pRange.getSize() == 2) {
    first = pRange[0].toInt();
    last = pRange[1].toInt();
  }
  const TurnScope replay(fReplay, fVisionModulesLock);
  fFilePath = pFilePath;
  fLoop = pLoop;
  fReplayMode = pReplayMode;
  fStreamNumber = pStreamNumber;
  fFirstImage = first;
  fLastImage = last;
  fCurrentImage = first;
  const std::optional<OXVideoStream> stream = xReadFormat();
  RealCameraProperties& camera = *xCamera(fActiveCamera);
  camera.fColorSpace = static_cast<std::uint8_t>(stream ? stream->fColorSpace : kUnknownColorSpace);
  camera.fResolution = static_cast<std::int8_t>(stream ? stream->fResolution : -1);
  fDefaultResolution = camera.fResolution;
  camera.fFrameRate = kReplayFrameRate;
  fIsSelected = true;
  log(ki::log::kInfo, "setVideo", "Setting " + pFilePath + " video file.");
}

}  // namespace OX
