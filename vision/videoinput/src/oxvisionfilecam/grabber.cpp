// Opening and closing the recording. Every opening reads the file anew, since it may have been
// replaced, and starts clock and stamps anew, at the image where the last replay left off.
#include "delivery/grabber.h"

#include <boost/make_shared.hpp>

#include <oxframework/oxclock.h>
#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include "camerarecord.h"
#include "oxvisionfilecam.h"

namespace OX {
namespace {

// "clothing" is a slip: clients know the text so.
constexpr GrabberTexts kTexts{kFileCamCategory,
                              "vision/videoinput/src/oxvisionfilecam",
                              351,
                              false,
                              "Error clothing file",
                              "Done",
                              "File closed"};

void log(int pLevel, const char* pFunction, const std::string& pText) {
  report::log(pLevel, pFunction, pText, kFileCamCategory);
}

}  // namespace

bool OXVisionFileCam::xStartFrameGrabber(const int& pCameraIndex) {
  return xRunStart(pCameraIndex, kTexts,
                   [&]() OX_REQUIRES(fVisionModulesLock) { return xOpenDevice(); });
}

bool OXVisionFileCam::xStopFrameGrabber(const int& pCameraIndex) {
  return xRunStop(pCameraIndex, kTexts,
                  [&]() OX_REQUIRES(fVisionModulesLock) { return xCloseDevice(); });
}

// Named after setVideo also when the grabber opens the file: clients know record and error so.
void OXVisionFileCam::xReadVideo() {
  if (fVideo.readVideo(fFilePath)) return;
  log(ki::log::kError, "setVideo", "Unable to open the video file " + fFilePath);
  fVideo.closeVideo();
  throw OXError("VideoDevice", "setVideo", "unable to open the video file", "", 0);
}

// All five slots get the first image, which brings them to the format of the video. A slot that a
// subscriber still holds is left to it, and a fresh one takes its place.
bool OXVisionFileCam::xFillRing() {
  for (Slot& slot : fFrames)
    if (slot->fLockCount > 0) slot = boost::make_shared<CamBuffer>();
  bool read = false;
  for (Slot& slot : fFrames) read = xTakeSpare(slot, xReadFrame(fCurrentImage, true));
  for (const Slot& slot : fFrames) slot->fIsUnshown = false;  // the copies are no frames
  ++fCurrentImage;
  if (fCurrentImage > fLastImage) {
    xTakeSpare(fFrames[fNextFrame], xReadAfterRange());
  } else {
    xTakeSpare(fFrames[fNextFrame], xReadNext());
    ++fCurrentImage;
  }
  return read;
}

bool OXVisionFileCam::xOpenDevice() {
  const TurnScope replay(fReplay, fVisionModulesLock);
  const OXCriticalSectionPause pause(fVisionModulesLock);
  fIsSelected = false;
  fPace = Pace::kNever;
  fFrameSlot.reset();
  fFrameIndex = -1;
  xCamera(0)->fNewestFrame.set({});
  // Throws if the file is gone or damaged; the grabber is then left failed.
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
  // Only ever shortened: a longer file in the same place is replayed up to the old end.
  if (fLastImage >= images) fLastImage = images - 1;
  // Where an earlier replay left off need not be an image: previousImage counts below the first,
  // and the end of the range is one above the last.
  if (fCurrentImage < 0 && !fLoop)
    fCurrentImage = 0;
  else if (fCurrentImage < 0 || fCurrentImage >= images)
    fCurrentImage = fLoop ? fFirstImage : fLastImage;
  const bool read = xFillRing();
  xSelectCameraOf(fFrames[0]->fImage);
  fFirstTimestamp = fFrames[0]->fImage.fTimeStamp;
  // Last: the time that reading took is no part of the replay.
  fStartTime = OXClock::get().localNowUs();
  if (read) xBeginFrames();
  return read;
}

// The images in the ring stay: a subscriber may hold one. fCurrentImage stays too, which is how the
// next opening knows where to go on.
bool OXVisionFileCam::xCloseDevice() {
  const TurnScope replay(fReplay, fVisionModulesLock);
  {
    const OXCriticalSectionPause pause(fVisionModulesLock);
    fVideo.closeVideo();
  }
  fDefaultResolution = -1;
  xCamera(fActiveCamera)->fGrabberState = kGrabberStopped;
  return true;
}

}  // namespace OX
