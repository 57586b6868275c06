/// One camera that replays a recording (.oxv) to the ordinary subscribers.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <oxframework/oxvideo.h>
#include "oxvisionbuffer.h"
#include "oxvisionvideoinput.h"
#include "ring.h"
#include "status/framefeed.h"

namespace OX {

/// There is no replay thread: time moves only when a subscriber asks. The file is read one image
/// ahead into a ring of five frames, and the time stamps are rewritten on the way so that they keep
/// rising across loops and repeats. A frame that a subscriber holds is never written to; an image
/// that can't be read leaves the old picture in its place.
///
/// The replay is a turn (turn.h) of whoever reads the next image, with no lock held: it guards the
/// ring, the replay fields and the reader. A request that needs the next image waits for one that
/// reads it; releases and getters do not. Time stamps come from a file: all arithmetic on them
/// wraps.
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

  // --- frames.cpp ---
  std::optional<std::chrono::microseconds> untilNextFrame(int pCamera) const override;

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
  // --- frames.cpp ---
  void xLendNewest(int pCamera, const std::string& pId, std::uint64_t pAfter, LentFrame& pFrame)
      OX_REQUIRES(fVisionModulesLock) override;
  void xReturnLent(int pCamera, const boost::shared_ptr<void>& pSource) noexcept override;
  // --- acquisition.cpp ---
  FeedStatus xFeedStatus(int pCamera, std::int64_t pNowUs) const
      OX_REQUIRES_SHARED(fVisionModulesLock) override;

 private:
  friend class DeviceProbe;  ///< through which tests read the counters

  using Slot = boost::shared_ptr<CamBuffer>;
  static constexpr unsigned int kSlots = 5;
  static constexpr unsigned int kPassUs = 500;
  // For a slot of the ring that nobody holds: a request waits a second, a step back five.
  static constexpr int kDeliveryPasses = 2000;
  static constexpr int kPreviousPasses = 10000;
  static constexpr int kReplayFrameRate = 30;  ///< images a second, whatever was recorded

  // --- published.cpp ---
  void xBindFileMethods();
  void xSetVideo(const std::string& pFilePath, const OXValue& pRange, bool pLoop, int pReplayMode,
                 int pStreamNumber);
  int getCameraParameterById(const int& pCameraIndex, const int& pParam);
  // The file is looked at with the lock paused.
  bool xExists(const std::string& pPath) OX_REQUIRES(fVisionModulesLock);
  /// The format of the stream that is selected; empty when the file has no such stream.
  std::optional<OXVideoStream> xReadFormat() OX_REQUIRES(fVisionModulesLock, fReplay);
  // --- grabber.cpp ---
  bool xOpenDevice() OX_REQUIRES(fVisionModulesLock);
  bool xCloseDevice() OX_REQUIRES(fVisionModulesLock);
  void xReadVideo() OX_REQUIRES(fReplay);
  bool xFillRing() OX_REQUIRES(fReplay);
  // --- acquisition.cpp ---
  bool xWaitForSlot(OXBoundedWait& pWait, std::uint64_t pSeen) OX_REQUIRES(fVisionModulesLock);
  void xSelectCameraOf(const OXImage& pImage);
  void xCountStep(const OXImage& pImage) OX_REQUIRES(fVisionModulesLock);
  // --- frames.cpp: in the turn of the replay, with no lock held ---
  /// A slot in the place of one that others read.
  Slot xFreshSlot(const Slot& pLeft) OX_REQUIRES(fReplay);
  /// The current image is a frame, unless it was one before, or could not be read.
  void xCountFrame() OX_REQUIRES(fReplay);
  /// Lets others know the newest frame and the moment of the next one, and tells the listener if
  /// one of them has changed.
  void xPublishFrame() OX_REQUIRES(fReplay);
  /// After an opening, whose image is a frame only where requests are served it.
  void xBeginFrames() OX_REQUIRES(fReplay);

  // --- replay.cpp: in the turn of the replay, with no lock held ---
  bool xTakeSpare(Slot& pSlot, bool pWasRead) OX_REQUIRES(fReplay);
  bool xReadFrame(std::int64_t pIndex, bool pFirst) OX_REQUIRES(fReplay);
  bool xReadNext() OX_REQUIRES(fReplay);
  bool xReadAfterRange() OX_REQUIRES(fReplay);
  bool xTurnRing() OX_REQUIRES(fReplay);
  void xTurnRingPast(std::int64_t pSkipped) OX_REQUIRES(fReplay);
  /// What a request finds: an image to serve, none, or a ring of which all slots are held.
  enum class Step { kServe, kNone, kRingIsHeld };
  Step xAdvance(const std::string& pId) OX_REQUIRES(fReplay);
  Step xStep(const std::string& pId) OX_REQUIRES(fReplay);
  void xMeasureLoop() OX_REQUIRES(fReplay);
  // Mode 0.
  Step xStepWhenDue() OX_REQUIRES(fReplay);
  void xReadAheadStepping() OX_REQUIRES(fReplay);
  // Mode 1.
  Step xFollowTimeStamps() OX_REQUIRES(fReplay);
  bool xHasPassed(std::int64_t pTimeStamp) const OX_REQUIRES(fReplay);
  bool xCatchUp() OX_REQUIRES(fReplay);
  bool xCatchUpAfterRange() OX_REQUIRES(fReplay);
  std::int64_t xCountSkippableImages() const OX_REQUIRES(fReplay);
  void xSkipPassedLoops() OX_REQUIRES(fReplay);
  // previousImage.
  void xLogRingIsHeld() const;
  void xStepBack(std::int64_t pTimeStamp) OX_REQUIRES(fReplay);
  void xLoopBack(std::int64_t pTimeStamp) OX_REQUIRES(fReplay);
  void xReadAheadAfterStep(std::int64_t pTimeStamp) OX_REQUIRES(fReplay);
  OXImage& xCurrent() OX_REQUIRES(fReplay) { return fFrames[fCurrentFrame]->fImage; }
  OXImage& xNext() OX_REQUIRES(fReplay) { return fFrames[fNextFrame]->fImage; }

  Turn fReplay{"read of the replay"};
  OXWakeup fSlotReleased;  ///< for those who found all slots held
  std::string fFilePath OX_GUARDED_BY(fReplay);
  OXVideo fVideo OX_GUARDED_BY(fReplay);
  /// The next image to read, counted against the range; see replay.cpp.
  std::int64_t fCurrentImage OX_GUARDED_BY(fReplay) = 0;
  /// The range, both ends included. As set by setVideo; the opening cuts the end to the file's.
  std::int64_t fFirstImage OX_GUARDED_BY(fReplay) = 0;
  std::int64_t fLastImage OX_GUARDED_BY(fReplay) = INT32_MAX;
  int fStreamNumber OX_GUARDED_BY(fReplay) = 0;
  int fReplayMode OX_GUARDED_BY(fReplay) = 0;
  bool fLoop OX_GUARDED_BY(fReplay) = false;
  std::array<Slot, kSlots> fFrames OX_GUARDED_BY(fReplay);
  /// Outside the ring, held by nobody: takes every read, and the place of a slot if it succeeded.
  Slot fSpare OX_GUARDED_BY(fReplay);
  // Microseconds.
  /// Local clock at the start of replay, in mode 0 at the last step.
  std::int64_t fStartTime OX_GUARDED_BY(fReplay) = 0;
  /// Stamp of the image that the opening put in the first slot.
  std::int64_t fFirstTimestamp OX_GUARDED_BY(fReplay) = 0;
  /// One pass through the file; 0: not yet known.
  std::int64_t fLoopDuration OX_GUARDED_BY(fReplay) = 0;
  /// Added to the time stamps of the file.
  std::int64_t fTimeOffset OX_GUARDED_BY(fReplay) = 0;
  /// The last clock reading.
  std::int64_t fNow OX_GUARDED_BY(fReplay) = 0;
  unsigned int fCurrentFrame OX_GUARDED_BY(fReplay) = 0;  ///< the slot that is served
  unsigned int fNextFrame OX_GUARDED_BY(fReplay) = 1;     ///< the slot that is read ahead
  std::atomic<std::int64_t> fReplayPeriod{INT64_MAX};     ///< mode 0: from step to step
  std::atomic<bool> fImageServed{true};  ///< mode 0: the current image is still the one to serve
  std::atomic<bool> fStrangeCameraLogged{false};  ///< once per opening
  // For streams of frames.
  /// When the next one is due: never, when it is asked for, after fReplayPeriod, at a moment.
  enum class Pace { kNever, kOnRequest, kByPeriod, kByMoment };
  static constexpr std::size_t kLentSlots = 8;
  /// Slots that left the ring lately while streams read them.
  std::array<Slot, kLentSlots> fLentSlots OX_GUARDED_BY(fReplay);
  std::size_t fNextLentSlot OX_GUARDED_BY(fReplay) = 0;
  Slot fFrameSlot OX_GUARDED_BY(fReplay);       ///< with the newest frame; null when it is lost
  FrameMark fFrame OX_GUARDED_BY(fReplay);      ///< the newest
  int fFrameIndex OX_GUARDED_BY(fReplay) = -1;  ///< of its image
  // What untilNextFrame() reads; microseconds of the local clock.
  std::atomic<Pace> fPace{Pace::kNever};
  std::atomic<std::int64_t> fPaceUs{0};       ///< the last step, or the moment of the next one
  std::atomic<std::int64_t> fLeastPeriod{0};  ///< after a failed read
  std::atomic<bool> fIsSelected{false};       ///< another recording, which was not opened yet
  // For the status.
  FrameFeed fFeed OX_GUARDED_BY(fVisionModulesLock);  ///< the steps that were served
  std::atomic<std::int64_t> fPassedOver{0};           ///< images that a request found out of date
};

inline constexpr const char* kFileCamCategory = "vision.oxvisionfilecam";

}  // namespace OX
