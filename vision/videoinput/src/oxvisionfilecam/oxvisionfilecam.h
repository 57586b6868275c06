/// One camera that replays a recording (.oxv) to the ordinary subscribers.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include <oxframework/oxvideo.h>
#include "oxvisionvideoinput.h"
#include "ring.h"

namespace OX {

/// There is no replay thread: time moves only when a subscriber asks. The file is read one image
/// ahead into a ring of five frames, and the time stamps are rewritten on the way so that they keep
/// rising across loops and repeats. A frame that a subscriber holds is never written to; an image
/// that can't be read leaves the old picture in its place.
///
/// Locks: fVisionModulesLock first, then fParametersLock, which guards the ring, the replay fields
/// and the reader. Time stamps come from a file: all arithmetic on them wraps.
class OXVisionFileCam final : public OXSingleton<OXVisionFileCam>, public OXVisionVideoInput {
 public:
  explicit OXVisionFileCam(boost::shared_ptr<OXBroker> pBroker);
  ~OXVisionFileCam() override;

  // --- published beside the device's own methods: published.cpp ---
  /// Selects the file to replay; takes effect when the grabber next starts. pRange is an array
  /// [first, last] or anything else for the whole file; pReplayMode 0 is image by image or at
  /// replaySpeed, 1 follows the recorded time stamps. A missing file is logged and only stops the
  /// grabber; one that can't be read throws OXError, with the new settings stored.
  void setVideo(const std::string& pFilePath, const OXValue& pRange, const bool& pLoop,
                const int& pReplayMode, const int& pStreamNumber);
  // --- replay.cpp ---
  /// Steps one image back, in any mode; time stamps go on rising. From the first image of the range
  /// it goes to the last but one with loop, and reads nothing without. Thread-safe; waits up to 5 s
  /// while subscribers hold all frames, then changes nothing.
  void previousImage();
  /// Lets the next request of mode 0 step on. Takes no lock.
  void nextImage();
  /// Images per second in mode 0; 0 means that only nextImage steps. Takes no lock.
  void replaySpeed(const float& pImagesPerSecond);
  /// Index of the image that was read last. Takes no lock.
  int getCurrentImageNumber() OX_NO_THREAD_SAFETY_ANALYSIS;  // one atomic field of fVideo

  // --- validity.cpp ---
  bool xIsResolutionValid(int pResolution, int pCamera) const override;
  bool xIsFrameRateValid(int pFrameRate, int pCamera) const override;
  bool xIsColorSpaceValid(int pColorSpace, int pCamera) const override;
  // --- grabber.cpp ---
  bool xStartFrameGrabber(const int& pCameraIndex) OX_REQUIRES(fVisionModulesLock) override;
  bool xStopFrameGrabber(const int& pCameraIndex) OX_REQUIRES(fVisionModulesLock) override;
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

 protected:
  // --- acquisition.cpp ---
  AcquiredFrame xAcquireFrame(const Claim& pClaim, const char* pOperation)
      OX_REQUIRES(fVisionModulesLock) override;
  void xReturnRawSource(int pCameraIndex, OXVisionBuffer& pBuffer)
      OX_REQUIRES(fVisionModulesLock) override;

 private:
  using Slot = boost::shared_ptr<CamBuffer>;
  static constexpr unsigned int kSlots = 5;
  static constexpr int kReplayFrameRate = 30;  ///< images a second, whatever was recorded

  // --- published.cpp ---
  void xBindFileMethods();
  int getCameraParameterById(const int& pCameraIndex, const int& pParam);
  // --- grabber.cpp ---
  bool xOpenDevice() OX_REQUIRES(fVisionModulesLock);
  bool xCloseDevice() OX_REQUIRES(fVisionModulesLock);
  void xReadVideo() OX_REQUIRES(fParametersLock);
  bool xFillRing() OX_REQUIRES(fParametersLock);
  // --- acquisition.cpp ---
  void xSelectCameraOf(const OXImage& pImage);

  // --- replay.cpp: fParametersLock held ---
  bool xTakeSpare(Slot& pSlot, bool pWasRead) OX_REQUIRES(fParametersLock);
  bool xReadFrame(std::int64_t pIndex, bool pFirst) OX_REQUIRES(fParametersLock);
  bool xReadNext() OX_REQUIRES(fParametersLock);
  bool xReadAfterRange() OX_REQUIRES(fParametersLock);
  bool xTurnRing() OX_REQUIRES(fParametersLock);
  void xTurnRingPast(std::int64_t pSkipped) OX_REQUIRES(fParametersLock);
  bool xMoveRing(int pPasses) OX_REQUIRES(fParametersLock);
  bool xAdvance(const std::string& pId) OX_REQUIRES(fParametersLock);
  void xMeasureLoop() OX_REQUIRES(fParametersLock);
  // Mode 0.
  bool xStepWhenDue() OX_REQUIRES(fParametersLock);
  void xReadAheadStepping() OX_REQUIRES(fParametersLock);
  // Mode 1.
  bool xFollowTimeStamps() OX_REQUIRES(fParametersLock);
  bool xHasPassed(std::int64_t pTimeStamp) const OX_REQUIRES(fParametersLock);
  bool xCatchUp() OX_REQUIRES(fParametersLock);
  bool xCatchUpAfterRange() OX_REQUIRES(fParametersLock);
  std::int64_t xCountSkippableImages() const OX_REQUIRES(fParametersLock);
  void xSkipPassedLoops() OX_REQUIRES(fParametersLock);
  // previousImage.
  void xStepBack(std::int64_t pTimeStamp) OX_REQUIRES(fParametersLock);
  void xLoopBack(std::int64_t pTimeStamp) OX_REQUIRES(fParametersLock);
  void xReadAheadAfterStep(std::int64_t pTimeStamp) OX_REQUIRES(fParametersLock);
  OXImage& xCurrent() OX_REQUIRES(fParametersLock) { return fFrames[fCurrentFrame]->fImage; }
  OXImage& xNext() OX_REQUIRES(fParametersLock) { return fFrames[fNextFrame]->fImage; }

  std::string fFilePath OX_GUARDED_BY(fParametersLock);
  OXVideo fVideo OX_GUARDED_BY(fParametersLock);
  /// The next image to read, counted against the range; see replay.cpp.
  std::int64_t fCurrentImage OX_GUARDED_BY(fParametersLock) = 0;
  /// The range, both ends included. As set by setVideo; the opening cuts the end to the file's.
  std::int64_t fFirstImage OX_GUARDED_BY(fParametersLock) = 0;
  std::int64_t fLastImage OX_GUARDED_BY(fParametersLock) = INT32_MAX;
  int fStreamNumber OX_GUARDED_BY(fParametersLock) = 0;
  int fReplayMode OX_GUARDED_BY(fParametersLock) = 0;
  bool fLoop OX_GUARDED_BY(fParametersLock) = false;
  std::array<Slot, kSlots> fFrames OX_GUARDED_BY(fParametersLock);
  /// Outside the ring, held by nobody: takes every read, and the place of a slot if it succeeded.
  Slot fSpare OX_GUARDED_BY(fParametersLock);
  // Microseconds.
  /// Local clock at the start of replay, in mode 0 at the last step.
  std::int64_t fStartTime OX_GUARDED_BY(fParametersLock) = 0;
  /// Stamp of the image that the opening put in the first slot.
  std::int64_t fFirstTimestamp OX_GUARDED_BY(fParametersLock) = 0;
  /// One pass through the file; 0: not yet known.
  std::int64_t fLoopDuration OX_GUARDED_BY(fParametersLock) = 0;
  /// Added to the time stamps of the file.
  std::int64_t fTimeOffset OX_GUARDED_BY(fParametersLock) = 0;
  /// The last clock reading.
  std::int64_t fNow OX_GUARDED_BY(fParametersLock) = 0;
  unsigned int fCurrentFrame OX_GUARDED_BY(fParametersLock) = 0;  ///< the slot that is served
  unsigned int fNextFrame OX_GUARDED_BY(fParametersLock) = 1;     ///< the slot that is read ahead
  std::atomic<std::int64_t> fReplayPeriod{INT64_MAX};             ///< mode 0: from step to step
  std::atomic<bool> fImageServed{true};  ///< mode 0: the current image is still the one to serve
  std::atomic<bool> fStrangeCameraLogged{false};  ///< once per opening
};

inline constexpr const char* kFileCamCategory = "vision.oxvisionfilecam";

}  // namespace OX
