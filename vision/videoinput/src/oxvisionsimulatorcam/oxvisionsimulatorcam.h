/// Two cameras without hardware: a simulator pushes RGB frames, subscribers take images.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "oxvisionvideoinput.h"
#include "store.h"

namespace OX {

/// A pushed frame is kept until a subscriber asks; it is then converted once, on that subscriber's
/// thread, and shared. A frame that nobody asked for is overwritten two pushes later. The broker
/// owns the module; public operations are thread-safe and described in ivideoinput.h.
///
/// When a camera starts to expect frames of another size or rate, the event
/// "VideoInput/ExpectedImage" is raised with [camera, width, height, images per second], so that
/// simulators need not ask. It is raised on a thread of the broker, shortly after the change and
/// without any lock: of several changes in quick succession only the last may be announced.
///
/// Locks: fVisionModulesLock first, then fParametersLock, while a parameter is set, or fMutex of a
/// camera (store.h). putImage takes only the last. None is held while a frame is waited for, copied
/// or converted.
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
  // --- grabber.cpp ---
  bool xStartFrameGrabber(const int& pCameraIndex) OX_REQUIRES(fVisionModulesLock) override;
  bool xStopFrameGrabber(const int& pCameraIndex) OX_REQUIRES(fVisionModulesLock) override;
  // --- push.cpp ---
  OXValue getExpectedImageParameters() override;
  bool setSimCamInputSize(const int& pWidth, const int& pHeight) override;
  bool putImage(const OXValue& pImage) override;

 protected:
  // --- acquisition.cpp ---
  AcquiredFrame xAcquireFrame(const Claim& pClaim, const char* pOperation)
      OX_REQUIRES(fVisionModulesLock) override;
  void xReturnRawSource(int pCameraIndex, OXVisionBuffer& pBuffer)
      OX_REQUIRES(fVisionModulesLock) override;
  void xLendNewest(int pCamera, const std::string& pId, std::uint64_t pAfter, LentFrame& pFrame)
      OX_REQUIRES(fVisionModulesLock) override;
  void xReturnLent(int pCamera, const boost::shared_ptr<void>& pSource) noexcept override;
  // --- push.cpp ---
  FeedStatus xFeedStatus(int pCamera, std::int64_t pNowUs) const
      OX_REQUIRES_SHARED(fVisionModulesLock) override;
  // --- expectedimage.cpp ---
  void xCameraChanged() OX_REQUIRES(fVisionModulesLock) override;

 private:
  friend class DeviceProbe;

  // --- expectedimage.cpp ---
  /// Also with the lock held: it only hands the announcement to the broker.
  void xPostAnnouncement();
  /// On a thread of the broker: raises the event for each camera that expects something else than
  /// was announced last.
  void xAnnounceExpectedImages();
  /// [camera, width, height, images per second]
  OXValue xExpectedImage(int pCameraIndex) const;

  // --- grabber.cpp: always true ---
  bool xOpenDevice(int pCamera) OX_REQUIRES(fVisionModulesLock);
  bool xCloseDevice(int pCamera) OX_REQUIRES(fVisionModulesLock);

  // --- push.cpp ---
  struct Push {
    const void* pixels = nullptr;  ///< borrowed from the caller's value
    std::int64_t stamp = 0;        ///< microseconds, of its arrival
    std::int64_t arrivedUs = 0;    ///< the same by the device's clock, in all its bits
    int resolution = 0;
    std::uint64_t number = 0;
    int index = -1;  ///< of the buffer that it is copied into
    std::string feeder{};
  };
  struct DeclaredSize {
    const int& width;
    const int& height;
  };
  /// pSize is what the push declares; null when the size declared last is meant.
  bool xPutImage(const OXValue& pImage, CameraDriverBuffer& pStore, const DeclaredSize* pSize);
  /// A buffer that nobody uses, locked for writing; null after a second without one.
  OXVisionBuffer* xTakeInputBuffer(CameraDriverBuffer& pStore, Push& pPush);
  /// Unlocks the buffer and makes it the newest frame, unless a later push has ended before.
  void xEndPush(CameraDriverBuffer& pStore, Push& pPush, OXVisionBuffer& pBuffer);
  /// The size of the pushes to come; false, after a record, if no resolution has it.
  static bool xDeclareInputSize(int pWidth, int pHeight, CameraDriverBuffer& pStore)
      OX_REQUIRES(pStore.fMutex);
  /// Gives it to what was pushed before, too.
  static void xApplyInputSize(CameraDriverBuffer& pStore) OX_REQUIRES(pStore.fMutex);
  /// The pixels to copy, borrowed from pImage; null when they are refused.
  const void* xAcceptedPixels(const OXValue& pImage, const CameraDriverBuffer& pStore) const
      OX_REQUIRES(pStore.fMutex);
  /// Null for a camera that does not exist.
  boost::shared_ptr<CameraDriverBuffer> xStore(int pCameraIndex) const;

  // --- acquisition.cpp: without fVisionModulesLock ---
  /// What a request for the newest frame has to do.
  struct Conversion {
    enum State { kNoInput, kReady, kUnderWay, kBegun, kNoFrame };
    State state = kNoInput;
    int index = -1;  ///< of the converted frame, or the one that is filled
    boost::shared_ptr<OXVisionBuffer> frame{};
    boost::shared_ptr<OXVisionBuffer> input{};
    std::int64_t oldStamp = -1;
    FrameMark oldMark{};
    std::uint64_t push = 0;
  };
  /// Who asks: a request knows frames by their time stamps, a stream by their numbers.
  enum class Asker { kRequest, kStream };
  Conversion xBeginConversion(CameraDriverBuffer& pStore, Asker pAsker) const
      OX_REQUIRES(pStore.fMutex);
  /// A frame that nobody uses; -1 when there is none.
  static int xFindFreeFrame(CameraDriverBuffer& pStore) OX_REQUIRES(pStore.fMutex);
  static void xCountReader(OXVisionBuffer& pFrame, Asker pAsker);
  /// What frames are converted to, as it was with fVisionModulesLock held: it may change meanwhile.
  struct Opening {
    std::uint64_t number;
    int resolution;        ///< of the camera
    int activeResolution;  ///< of the device's active camera; -1: there is none
  };
  boost::shared_ptr<OXVisionBuffer> xEndConversion(CameraDriverBuffer& pStore,
                                                   const Conversion& pWork, const Opening& pOpening,
                                                   Asker pAsker, bool pGood);
  /// Down and up by pRatio, with the width and height of the source (pixels/resample/resampling.h).
  /// False, with the target untouched, unless pRatio is 2, 4 or 8.
  static bool xSubSample(int pRatio, int pWidth, int pHeight, const unsigned char* pSource,
                         unsigned char* pTarget);
  static bool xOverSample(int pRatio, int pWidth, int pHeight, const unsigned char* pSource,
                          unsigned char* pTarget);
  /// False if the sizes allow no resampling; the target is then untouched.
  bool xReSize(const Opening& pOpening, const OXImage& pSource, const OXImage& pTarget);
  /// Waits up to a second; false, after a record, if no frame was pushed.
  bool xWaitForFirstFrame(CameraDriverBuffer& pStore, const std::string& pId);
  void xLogNoFrame(const std::string& pId) const;
  /// What xMakeRawFrame() made: the newest frame, converted, with its read count raised.
  struct RawFrame {
    boost::shared_ptr<OXVisionBuffer> frame{};  ///< null: it can't be had or is of another opening
    bool isFailed = false;                      ///< a record says why
  };
  RawFrame xMakeRawFrame(const Opening& pOpening, CameraDriverBuffer& pStore,
                         const std::string& pId, const char* pOperation, Asker pAsker);
  Opening xOpening(const CameraDriverBuffer& pStore, int pCamera) const
      OX_REQUIRES_SHARED(fVisionModulesLock);
  void xReturnFrame(const CameraDriverBuffer& pStore, OXVisionBuffer& pFrame);

  // --- parameters.cpp ---
  bool xSetResolutionParam(int pCameraIndex, int pValue) OX_REQUIRES(fVisionModulesLock);
  bool xSetFrameRateParam(int pCameraIndex, int pValue) OX_REQUIRES(fVisionModulesLock);
  bool xSelectCamera(int pCameraIndex, int pValue) OX_REQUIRES(fVisionModulesLock);
  RealCameraProperties& xParameterCamera(int pCameraIndex, const char* pMethod) const;

  std::vector<boost::shared_ptr<CameraDriverBuffer>> fCameraDriverBuffers;  ///< one a camera
  /// Changes that are still to be announced. Whoever raises it from 0 posts the announcement, of
  /// which there is therefore one at a time.
  std::atomic<int> fUnannouncedChanges{0};
  /// What each camera was last announced to expect, or expected from the beginning: touched by the
  /// announcement alone.
  std::vector<OXValue> fAnnounced;
};

/// The category of most of the simulator's records; a few use others, which clients filter by.
inline constexpr const char* kSimulatorCategory = "vision.oxvisionsimulatorcam";

}  // namespace OX
