/// The device core: everything that all cameras have in common.
#pragma once

#include <array>
#include <atomic>
#include <boost/shared_ptr.hpp>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <oxframework/oxbroker.h>
#include <oxframework/oxlocks.h>
#include <oxframework/oxmodule.h>
#include <oxframework/oxthreadsafety.h>
#include <oxvision/iframesource.h>
#include <oxvision/ivideoinput.h>
#include "report.h"
#include "status/devicestatus.h"
#include "status/recordinglog.h"
#include "turn.h"

namespace OX {

class OXVisionBuffer;
struct AcquiredFrame;
struct Claim;
struct FrameMark;
struct FrameRequest;
struct GrabberTexts;
struct LendingTexts;
struct LentFrame;
struct Lookup;
struct RealCameraProperties;
struct RequestedCameraProperties;
struct TakenFrame;
struct VisionModuleInfo;

/// The abstract module OXVideoDevice. It owns the table of cameras, the map of subscribers and the
/// pools of buffers. A concrete camera supplies the ten driver operations and fills fNbCameras,
/// fDefaultResolution and fCameraProperties in its constructor; the broker owns it.
///
/// Public operations are thread-safe. fVisionModulesLock is the one lock over subscribers, cameras
/// and buffers: delivery and every change take it for writing, getters for reading. It is held for
/// bookkeeping alone, and paused for whatever takes longer: a wait, a conversion, a copy, a file.
/// Meanwhile a Turn keeps the thing that is worked on, and counts keep the buffers. Turns, lock
/// order and every wait are in docs/threading.md. The device has no thread: all work is done on its
/// callers'.
///
/// The public operations are described in ivideoinput.h. Every camera index goes through
/// xCamera(), since fActiveCamera and a caller's index may lie outside the table.
///
/// `// --- FILE ---` names the source that defines the declarations below it.
class OXVisionVideoInput : public OXModule,
                           public IVideoInput,
                           public IFrameSource,
                           public DeviceStatus {
 public:
  ~OXVisionVideoInput() override;

  // --- subscribers/subscribers.cpp ---
  void unsubscribe(const std::string& pId) override;
  // --- cameras.cpp ---
  int getCameraModel(const int& pCameraIndex) override;
  // --- delivery/grabber.cpp ---
  bool startFrameGrabber(const int& pCameraIndex) override;
  bool stopFrameGrabber(const int& pCameraIndex) override;
  // --- cameras.cpp ---
  bool isFrameGrabberOff(const int& pCameraIndex) override;
  int getFrameRate(const int& pCameraIndex) override;
  int getResolution(const int& pCameraIndex) override;
  int getColorSpace(const int& pCameraIndex) override;
  // --- subscribers/subscribers.cpp ---
  std::string subscribeCamera(const std::string& pName, const int& pCameraIndex,
                              const int& pResolution, const int& pColorSpace,
                              const int& pFps) override;
  // --- subscribers/settings.cpp ---
  int getFrameRate(const std::string& pId) override;
  bool setFrameRate(const std::string& pId, const int& pFrameRate) override;
  int getActiveCamera(const std::string& pId) override;
  bool setActiveCamera(const std::string& pId, const int& pCameraIndex) override;
  int getResolution(const std::string& pId) override;
  bool setResolution(const std::string& pId, const int& pResolution) override;
  int getColorSpace(const std::string& pId) override;
  bool setColorSpace(const std::string& pId, const int& pColorSpace) override;
  // --- subscribers/parameters.cpp ---
  int getCameraParameter(const std::string& pId, const int& pParam) override;
  bool setCameraParameter(const std::string& pId, const int& pParam, const int& pValue) override;
  bool setCameraParameterToDefault(const std::string& pId, const int& pParam) override;
  // --- delivery/raw.cpp ---
  OXImage* getDirectRawImageLocal(const std::string& pId) override;
  OXValue getDirectRawImageRemote(const std::string& pId) override;
  bool releaseDirectRawImage(const std::string& pId) override;
  // --- delivery/single.cpp ---
  OXImage* getImageLocal(const std::string& pId) override;
  OXValue getImageRemote(const std::string& pId) override;
  bool releaseImage(const std::string& pId) override;
  // --- subscribers/subscribers.cpp ---
  std::string subscribeCameras(const std::string& pName, const OXValue& pCameraIndexes,
                               const OXValue& pResolutions, const OXValue& pColorSpaces,
                               const int& pFps) override;
  // --- subscribers/multisettings.cpp ---
  OXValue getActiveCameras(const std::string& pId) override;
  OXValue setActiveCameras(const std::string& pId, const OXValue& pCameraIndices) override;
  OXValue getResolutions(const std::string& pId) override;
  OXValue setResolutions(const std::string& pId, const OXValue& pResolutions) override;
  OXValue getColorSpaces(const std::string& pId) override;
  OXValue setColorSpaces(const std::string& pId, const OXValue& pColorSpaces) override;
  // --- subscribers/parameters.cpp ---
  OXValue getCamerasParameter(const std::string& pId, const int& pParam) override;
  OXValue setCamerasParameter(const std::string& pId, const int& pParam,
                              const OXValue& pValues) override;
  OXValue setCamerasParameterToDefault(const std::string& pId, const int& pParam) override;
  // --- delivery/raw.cpp ---
  OXValue getDirectRawImagesLocal(const std::string& pId) override;
  OXValue getDirectRawImagesRemote(const std::string& pId) override;
  OXValue releaseDirectRawImages(const std::string& pId) override;
  // --- delivery/multi.cpp ---
  OXValue getImagesLocal(const std::string& pId) override;
  OXValue getImagesRemote(const std::string& pId) override;
  OXValue releaseImages(const std::string& pId) override;
  // --- delivery/recording.cpp ---
  bool recordVideo(const std::string& pId, const std::string& pPath, const int& pTotalNumber,
                   const int& pPeriod) override;
  bool stopVideo(const std::string& pId) override;
  // --- cameras.cpp: throw here, the simulator overrides them ---
  bool putImage(const int& pCameraIndex, const int& pWidth, const int& pHeight,
                const OXValue& pImage) override;
  OXValue getExpectedImageParameters(const int& pCameraIndex) override;
  // --- geometry.cpp ---
  std::vector<float> getAngularPositionFromImagePosition(
      const int& pCameraIndex, const std::vector<float>& pImagePosition) override;
  std::vector<float> getImagePositionFromAngularPosition(
      const int& pCameraIndex, const std::vector<float>& pAngularPosition) override;
  std::vector<float> getAngularSizeFromImageSize(const int& pCameraIndex,
                                                 const std::vector<float>& pImageSize) override;
  std::vector<float> getImageSizeFromAngularSize(const int& pCameraIndex,
                                                 const std::vector<float>& pAngularSize) override;
  std::vector<float> getImageInfoFromAngularInfo(const int& pCameraIndex,
                                                 const std::vector<float>& pAngularInfo) override;
  std::vector<float> getImageInfoFromAngularInfoWithResolution(
      const int& pCameraIndex, const std::vector<float>& pAngularInfo,
      const int& pResolution) override;

  // --- the driver: supplied by a concrete camera ---
  // Called with fVisionModulesLock held, except for the const ones. Each must accept any camera
  // index, and pauses the lock (OXCriticalSectionPause) for what takes longer than bookkeeping. The
  // subscriber's turn, or that of the cameras, is the caller's meanwhile.
  virtual bool xIsResolutionValid(int pResolution, int pCamera) const = 0;
  virtual bool xIsFrameRateValid(int pFrameRate, int pCamera) const = 0;
  virtual bool xIsColorSpaceValid(int pColorSpace, int pCamera) const = 0;
  /// The newest raw frame of the subscriber's camera, now held by the subscriber; null when there
  /// is none. The pixels stay the camera's until the release.
  virtual OXImage* xGetDirectRawImage(const std::string& pId, bool pDeepCopy)
      OX_REQUIRES(fVisionModulesLock) = 0;
  /// The same for each camera of a multi-stream subscriber, in its order. Null for a camera without
  /// a free buffer; shorter than the list of cameras, or empty, when a camera failed.
  virtual std::vector<OXImage*> xGetDirectRawImages(const std::string& pId)
      OX_REQUIRES(fVisionModulesLock) = 0;
  /// Releases what the subscriber holds on a camera; true also when it holds nothing. False, after
  /// a record, for an unknown subscriber or camera.
  virtual bool xReleaseDirectRawImageDeep(const std::string& pId, const int& pCamera)
      OX_REQUIRES(fVisionModulesLock) = 0;
  /// Throws OXError, as xSetParam does, for a parameter that the camera does not have.
  virtual int xGetParam(const int& pCameraIndex, const int& pParam)
      OX_REQUIRES_SHARED(fVisionModulesLock) = 0;
  virtual bool xSetParam(int pCameraIndex, int pParam, int pValue, bool pSetDefault)
      OX_REQUIRES(fVisionModulesLock) = 0;
  /// True also when the grabber runs already; throws OXError if the source can't be opened.
  virtual bool xStartFrameGrabber(const int& pCameraIndex) OX_REQUIRES(fVisionModulesLock) = 0;
  /// True also when the grabber is off already; false, after a record, if closing failed.
  virtual bool xStopFrameGrabber(const int& pCameraIndex) OX_REQUIRES(fVisionModulesLock) = 0;

 protected:
  // --- delivery/single.cpp, delivery/multi.cpp: look up and check the subscriber themselves ---
  virtual OXImage* xGetImage(const std::string& pId) OX_REQUIRES(fVisionModulesLock);
  virtual std::vector<OXImage*> xGetImages(const std::string& pId) OX_REQUIRES(fVisionModulesLock);

 public:
  // --- subscribers/subscribers.cpp ---
  std::string subscribe(const std::string& pName, const int& pResolution, const int& pColorSpace,
                        const int& pFps) override;
  void unsubscribeAllInstances(const std::string& pName) override;
  void onClientDisconnected(const std::string& pEventName, const OXValue& pValue,
                            const std::string& pSubscriberId) override;
  // --- cameras.cpp ---
  int getActiveCamera() override;
  int getResolution() override;
  int getColorSpace() override;
  int getFrameRate() override;
  int getCameraModelID() override;
  // --- subscribers/parameters.cpp ---
  virtual void setParam(const int& pParam, const int& pValue, const int& pCameraIndex);
  void setParam(const int& pParam, const int& pValue) override;
  int getParam(const int& pParam) override;
  void setParamDefault(const int& pParam) override;
  // --- delivery/grabber.cpp ---
  bool startFrameGrabber() override;
  bool stopFrameGrabber() override;
  // --- cameras.cpp ---
  bool isFrameGrabberOff() override;
  OXValue resolutionToSizes(const int& pResolution) override;
  int sizesToResolution(const int& pWidth, const int& pHeight) override;
  // --- geometry.cpp ---
  std::vector<float> getAngPosFromImgPos(const std::vector<float>& pImagePosition) override;
  std::vector<float> getImgPosFromAngPos(const std::vector<float>& pAngularPosition) override;
  std::vector<float> getAngSizeFromImgSize(const std::vector<float>& pImageSize) override;
  std::vector<float> getImgSizeFromAngSize(const std::vector<float>& pAngularSize) override;
  std::vector<float> getImgInfoFromAngInfo(const std::vector<float>& pAngularInfo) override;
  std::vector<float> getImgInfoFromAngInfoWithRes(const std::vector<float>& pAngularInfo,
                                                  const int& pResolution) override;
  // --- cameras.cpp: throw here, the simulator overrides them ---
  OXValue getExpectedImageParameters() override;
  bool setSimCamInputSize(const int& pWidth, const int& pHeight) override;
  bool putImage(const OXValue& pImage) override;
  // --- geometry.cpp: apertures in radians; model 1 has the VGA lens, all others the HD lens ---
  virtual float xHorizontalApertureRad(int pCamera);
  virtual float xVerticalApertureRad(int pCamera);

  // --- published, but not virtual ---
  /// delivery/raw.cpp: takes a raw image and releases it; returns "lastVideoBuffer", or "" for an
  /// unknown id.
  std::string getDirectRawImageInterprocess(const std::string& pId);
  /// subscribers/parameters.cpp
  int getParam(const int& pParam, const int& pCameraIndex);
  /// subscribers/parameters.cpp: changes the active camera of the whole device.
  bool setActiveCamera(const int& pCameraIndex);

  // --- status/status.cpp: for the service OXVideoStatus ---
  std::vector<SubscriberStatus> subscriberStatus() const override;
  std::vector<CameraStatus> cameraStatus() const override;
  std::vector<RecordingStatus> recordingStatus() const override;

  // --- frames/framesource.cpp: for services that deliver frames, described in iframesource.h ---
  boost::shared_ptr<FrameSubscription> subscribeFrames(const std::string& pName,
                                                       const std::vector<FrameFormat>& pFormats,
                                                       bool pIsMultiStream, int pFps) override;
  std::optional<std::chrono::microseconds> untilNextFrame(int pCamera) const override;
  void setFrameListener(const boost::weak_ptr<FrameListener>& pListener) override;
  const StageDurations& stages() const override { return fStages; }

  // --- lifecycle.cpp ---
  /// Limits how many subscribers there may be at once, 256 by default; one more throws OXError, as
  /// does an exhausted memory. Those that are subscribed stay. Thread-safe.
  void setSubscriberLimit(int pLimit);

 protected:
  using BufferPtr = boost::shared_ptr<OXVisionBuffer>;
  using BufferPool = std::vector<BufferPtr>;

  /// Publishes all methods and subscribes to "ClientDisconnected". Without a memory service the
  /// device works all the same, after a record in the log.
  OXVisionVideoInput(boost::shared_ptr<OXBroker> pBroker, std::string pName);

  // --- claim.cpp: look-ups; the lock is held unless a comment says otherwise ---
  /// The camera of an index; null outside the table. The one way to the table that checks. Needs no
  /// lock.
  RealCameraProperties* xCamera(int pCameraIndex) const;
  /// The camera of an index. Otherwise logs and throws OXError(pMethod) with the text pBegin, the
  /// index and ") : invalid Camera index".
  RealCameraProperties& xCheckedCamera(int pCameraIndex, const char* pBegin, const char* pMethod,
                                       OXSourceLocation pWhere = OXSourceLocation::current()) const;
  /// The subscriber's own camera, or the device's active one if it follows that. May lie outside
  /// the table.
  int xCurrentCamera(const VisionModuleInfo& pSubscriber) const
      OX_REQUIRES_SHARED(fVisionModulesLock);
  /// The entry in the map of subscribers; null for an unknown id. Borrowed under the lock.
  const boost::shared_ptr<VisionModuleInfo>* xFind(const std::string& pId) const
      OX_REQUIRES_SHARED(fVisionModulesLock);
  /// What is found of a subscriber and a camera, by default its current one. Never fails.
  Lookup xLookUp(const std::string& pId, std::optional<int> pCamera = {}) const
      OX_REQUIRES_SHARED(fVisionModulesLock);
  /// A subscriber with one of the device's cameras, which the caller has checked.
  Claim xClaim(const boost::shared_ptr<VisionModuleInfo>& pSubscriber, int pCamera) const
      OX_REQUIRES_SHARED(fVisionModulesLock);

  // --- subscribers/negotiation.cpp ---
  /// Brings a camera to the highest resolution and frame rate that any subscriber asks for. Always
  /// true; does nothing for an unknown camera. May pause the lock.
  bool xUpdateParam(const int& pCameraIndex) OX_REQUIRES(fVisionModulesLock);

  // --- buffers/lending.cpp: the protocol of holds, shared by all cameras ---
  /// What xGetDirectRawImage does for every camera: checks the subscriber, its camera and its hold,
  /// asks the camera for its newest frame and lends it. Null, after a record in the camera's words,
  /// when one of these fails.
  OXImage* xLendNewestFrame(const std::string& pId, const LendingTexts& pTexts)
      OX_REQUIRES(fVisionModulesLock);
  /// What xReleaseDirectRawImageDeep does for every camera.
  bool xReleaseFrame(const std::string& pId, int pCamera, const LendingTexts& pTexts)
      OX_REQUIRES(fVisionModulesLock);
  /// Points a free raw buffer of the camera at the frame's pixels and stores the hold. Null when
  /// all buffers of the camera are in use.
  OXImage* xLendFrame(const Claim& pClaim, const AcquiredFrame& pFrame)
      OX_REQUIRES(fVisionModulesLock);
  /// Supplied by a camera that lends through xLendNewestFrame: its newest frame, counted as lent.
  /// When there is none, logs under the name pOperation and returns a null image.
  virtual AcquiredFrame xAcquireFrame(const Claim& pClaim, const char* pOperation)
      OX_REQUIRES(fVisionModulesLock);
  /// Supplied by a camera that has frames for streams: the newest one, counted as lent once more,
  /// if its number is higher than pAfter; else pFrame stays empty. Waits for no frame; pauses the
  /// lock.
  virtual void xLendNewest(int pCamera, const std::string& pId, std::uint64_t pAfter,
                           LentFrame& pFrame) OX_REQUIRES(fVisionModulesLock);
  /// Takes the source of such a frame back. Takes no lock but the camera's own.
  virtual void xReturnLent(int pCamera, const boost::shared_ptr<void>& pSource) noexcept;
  /// Called when the last reader of a raw buffer is gone: the camera takes back the frame that the
  /// buffer points at, if any.
  virtual void xReturnRawSource(int pCameraIndex, OXVisionBuffer& pBuffer)
      OX_REQUIRES(fVisionModulesLock);
  // --- subscribers/negotiation.cpp ---
  /// Called when what a camera runs at has changed, or may have. Must not wait or throw.
  virtual void xCameraChanged() OX_REQUIRES(fVisionModulesLock);

  // --- the driver: for the status ---
  /// What came to a camera of the table; takes no lock but the camera's own.
  virtual FeedStatus xFeedStatus(int pCamera, std::int64_t pNowUs) const
      OX_REQUIRES_SHARED(fVisionModulesLock) = 0;

  // --- delivery/grabber.cpp: the state machine of a grabber, shared by all cameras ---
  /// Sleeps by the clock with the lock paused.
  void xSleep(unsigned int pDurationUs) OX_REQUIRES(fVisionModulesLock);
  /// Opens a stopped camera; true also when it runs already. If pOpen returns false or throws, the
  /// camera is left failed; false becomes an OXError.
  bool xRunStart(int pCamera, const GrabberTexts& pTexts, const std::function<bool()>& pOpen)
      OX_REQUIRES(fVisionModulesLock);
  /// Closes a running camera; true also when it is off already. If pClose returns false, the camera
  /// is left failed and the result is false.
  bool xRunStop(int pCamera, const GrabberTexts& pTexts, const std::function<bool()>& pClose)
      OX_REQUIRES(fVisionModulesLock);

  // --- frames/framesource.cpp: tell the listener, if there is one ---
  /// Called with no lock held.
  void xTellFrame(int pCamera) const;

  std::atomic<int> fActiveCamera{0};  ///< may lie outside the table: see xCamera
  /// What a camera runs at when no subscriber asks for more.
  int fDefaultResolution OX_GUARDED_BY(fVisionModulesLock) = -1;
  // The table is filled by the constructor of the concrete camera and never changes; its records
  // are guarded by fVisionModulesLock, except for their atomic fields.
  int fNbCameras = 0;
  std::vector<boost::shared_ptr<RealCameraProperties>> fCameraProperties;
  boost::shared_ptr<OXMutexRW> fVisionModulesLock;
  /// For the concrete camera, whose header says what it guards. The core never takes it.
  boost::shared_ptr<OXMutex> fParametersLock;
  /// Of whoever changes what cameras run at, starts or stops them: one for all cameras, since a
  /// change of one may lead to a change of another.
  Turn fCamerasTurn{"change of the cameras"};
  StageDurations fStages;
  std::map<std::string, boost::shared_ptr<VisionModuleInfo>> fVisionModules
      OX_GUARDED_BY(fVisionModulesLock);

 private:
  friend class DeviceProbe;  ///< through which tests read the counters

  enum class Family { Mono, Multi, Any };
  /// Of a subscription: images on request, or streams of frames for a service.
  enum class Purpose { kImages, kFrames };
  struct SettingChange;

  // --- subscribers/subscribers.cpp ---
  /// pName, or pName_2 to pName_8; throws when all are in use.
  std::string xFindFreeId(const std::string& pName, bool pIsMultiStream)
      OX_REQUIRES(fVisionModulesLock);
  /// Adds a subscriber with the same wish for every camera, without buffers.
  boost::shared_ptr<VisionModuleInfo> xAddSubscriber(const std::string& pId, const char* pMethod,
                                                     int pFrameRate, int pResolution,
                                                     int pColorSpace, Purpose pPurpose)
      OX_REQUIRES(fVisionModulesLock);
  /// Removes it from the map, when all that it had is gone.
  void xForget(VisionModuleInfo& pSubscriber) OX_REQUIRES(fVisionModulesLock);
  static int xRaiseToMinimum(int pFps, const char* pFunction);
  /// What subscribeCamera() and subscribeCameras() do once the rate is known.
  boost::shared_ptr<VisionModuleInfo> xSubscribeCamera(const std::string& pName, int pCameraIndex,
                                                       int pResolution, int pColorSpace,
                                                       int pFrameRate, Purpose pPurpose);
  boost::shared_ptr<VisionModuleInfo> xSubscribeCameras(const std::string& pName,
                                                        const std::vector<int>& pCameras,
                                                        const std::vector<int>& pResolutions,
                                                        const std::vector<int>& pColorSpaces,
                                                        int pFrameRate, Purpose pPurpose);
  /// Raises the camera to what the subscriber asks for, if need be, and starts its grabber.
  void xStartForSubscriber(int pCamera, int pResolution, int pFrameRate, const char* pMethod)
      OX_REQUIRES(fVisionModulesLock);
  /// After a subscription that failed half-way.
  void xAbandon(const boost::shared_ptr<VisionModuleInfo>& pSubscriber, Purpose pPurpose)
      OX_REQUIRES(fVisionModulesLock);
  /// A pair of buffers for the subscriber on each of the cameras.
  void xCreateBuffers(VisionModuleInfo& pSubscriber, const std::vector<int>& pCameras,
                      const char* pMethod) OX_REQUIRES(fVisionModulesLock);
  /// unsubscribe(): with pMayWait it first waits until the subscriber holds no image.
  void xUnsubscribe(const std::string& pId, bool pMayWait) OX_REQUIRES(fVisionModulesLock);
  // --- subscribers/ownership.cpp ---
  /// Lets connections own what they subscribe. After the methods were published.
  void xDeclareOwnership();
  /// The subscriber that the call of this number made; null when it is gone.
  boost::shared_ptr<VisionModuleInfo> xFindAcquired(std::uint64_t pAcquisition) const
      OX_REQUIRES_SHARED(fVisionModulesLock);
  /// Its id; empty when it is gone.
  std::string xAcquiredId(std::uint64_t pAcquisition);
  /// Ends it at once, with all that it holds and records: nobody is left to be waited for. False
  /// when a call keeps it, or a change of the cameras does.
  bool xEndAcquired(std::uint64_t pAcquisition);
  /// The same for a subscriber, which may have ended already: true then.
  bool xTryToEnd(const boost::shared_ptr<VisionModuleInfo>& pSubscriber, const char* pReason)
      OX_REQUIRES(fVisionModulesLock);
  void xEndSubscriber(const boost::shared_ptr<VisionModuleInfo>& pSubscriber)
      OX_REQUIRES(fVisionModulesLock);

  // --- subscribers/subscribers.cpp ---
  bool xHoldsCurrentImage(const VisionModuleInfo& pSubscriber) const
      OX_REQUIRES_SHARED(fVisionModulesLock);
  /// Takes back what the subscriber holds, with a record.
  void xForceRelease(const std::string& pId) OX_REQUIRES(fVisionModulesLock);
  /// Ends all that a subscriber has, and removes it from the map.
  void xRemove(const boost::shared_ptr<VisionModuleInfo>& pSubscriber)
      OX_REQUIRES(fVisionModulesLock);
  /// Removes the pair that was made for the subscriber on the camera, if any.
  void xRemoveBuffers(const Claim& pClaim) OX_REQUIRES(fVisionModulesLock);
  void xUnsubscribeMono(const boost::shared_ptr<VisionModuleInfo>& pSubscriber, int pCamera)
      OX_REQUIRES(fVisionModulesLock);
  void xUnsubscribeMulti(const boost::shared_ptr<VisionModuleInfo>& pSubscriber)
      OX_REQUIRES(fVisionModulesLock);
  void xCheckSubscribeCameras(const std::string& pName, const std::vector<int>& pCameras,
                              const std::vector<int>& pResolutions,
                              const std::vector<int>& pColorSpaces) const;
  void xCheckStreams(const std::string& pName, const std::vector<int>& pCameras,
                     const std::vector<int>& pResolutions,
                     const std::vector<int>& pColorSpaces) const;
  [[noreturn]] void xFailSubscription(const char* pMethod, const std::string& pName,
                                      const std::string& pText, bool pLog) const;

  // --- claim.cpp ---
  /// The subscriber. Otherwise logs and throws OXError at pWhere, in the words of the operation.
  const boost::shared_ptr<VisionModuleInfo>& xSubscriber(
      const std::string& pId, Family pFamily, const report::SubscriberTexts& pTexts,
      OXSourceLocation pWhere = OXSourceLocation::current()) const
      OX_REQUIRES_SHARED(fVisionModulesLock);
  /// The subscriber's current camera; throws "FUNCTION(ID) : invalid Camera index" if there is
  /// none.
  int xCheckedCurrentCamera(const VisionModuleInfo& pSubscriber, const char* pFunction,
                            OXSourceLocation pWhere = OXSourceLocation::current()) const
      OX_REQUIRES_SHARED(fVisionModulesLock);
  /// The subscriber with its current camera, both checked as by the two operations above.
  Claim xClaim(const std::string& pId, Family pFamily, const report::SubscriberTexts& pTexts,
               OXSourceLocation pWhere = OXSourceLocation::current()) const
      OX_REQUIRES_SHARED(fVisionModulesLock);
  class SubscriberTurn;  ///< subscriberturn.h
  /// The subscriber whose turn it is with its current camera, checked as above.
  Claim xCurrentClaim(const SubscriberTurn& pTurn, const report::SubscriberTexts& pTexts,
                      OXSourceLocation pWhere = OXSourceLocation::current()) const
      OX_REQUIRES_SHARED(fVisionModulesLock);

  // --- buffers/pool.cpp ---
  /// Adds a converted and a raw buffer to the pools of a camera; false, with neither added, without
  /// memory or for an unknown camera.
  bool xCreateBuffersForStoringImages(const int& pCameraIndex, const int& pResolution,
                                      const int& pColorSpace) OX_REQUIRES(fVisionModulesLock);
  /// Searches, which return a buffer with its count raised, or null. "Oldest for editing" means
  /// that nobody uses it, "newest for reading" that nobody writes to it. The lower index wins a
  /// tie.
  BufferPtr xLockTheOldestBufferForEditing(RealCameraProperties& pCamera, int pResolution,
                                           int pColorSpace) OX_REQUIRES(fVisionModulesLock);
  /// The converted image in the format that the claim's subscriber asks for.
  BufferPtr xLockTheNewestBufferForReading(const Claim& pClaim)
      OX_REQUIRES_SHARED(fVisionModulesLock);
  /// The raw image.
  BufferPtr xLockTheNewestBufferForReading(const RealCameraProperties& pCamera)
      OX_REQUIRES(fVisionModulesLock);
  /// A free buffer in the claim's format; if there is none, another free one is reformatted.
  BufferPtr xLockBufferForConversion(const Claim& pClaim) OX_REQUIRES(fVisionModulesLock);
  BufferPtr xLockAnyBuffer(RealCameraProperties& pCamera, int pResolution, int pColorSpace)
      OX_REQUIRES(fVisionModulesLock);
  /// The same for a frame of a stream; null, after a record, only without memory.
  BufferPtr xLockBufferForFrame(const FrameRequest& pRequest) OX_REQUIRES(fVisionModulesLock);
  /// Puts a free buffer of the same format in the place of one that is lent to streams only, and
  /// returns the place; null for null, and without memory.
  const BufferPtr* xReplaceLent(RealCameraProperties& pCamera, const BufferPtr* pPlace)
      OX_REQUIRES(fVisionModulesLock);
  /// Null, after a record, without memory.
  static BufferPtr xTakeSpareBuffer(RealCameraProperties& pCamera);
  /// Of one that nobody uses any more. It stays the caller's when there are enough.
  static void xKeepSpareBuffer(RealCameraProperties& pCamera, BufferPtr& pBuffer);
  /// The buffer of a conversion that another request has begun, in the format of the claim's
  /// subscriber; null when there is none that passes pTest.
  BufferPtr xFindConversionUnderWay(const Claim& pClaim,
                                    const std::function<bool(const OXVisionBuffer&)>& pTest) const
      OX_REQUIRES_SHARED(fVisionModulesLock);
  /// The oldest free converted image of a format, for the caller to reformat; its time stamp is
  /// cleared. Null when none is free.
  OXImage* xImageToReformat(const Claim& pClaim, int pResolution, int pColorSpace)
      OX_REQUIRES(fVisionModulesLock);
  /// Remove one buffer from a pool: the oldest free one (of the wish's format if there is such a
  /// one), else the oldest of all, which then lives until its last release.
  void xFindAndEraseTheOldestBuffer(BufferPool& pPool) OX_REQUIRES(fVisionModulesLock);
  void xFindAndEraseTheOldestBuffer(BufferPool& pPool, const RequestedCameraProperties& pWish)
      OX_REQUIRES(fVisionModulesLock);
  void xErase(BufferPool& pPool, const BufferPtr& pBuffer) OX_REQUIRES(fVisionModulesLock);
  /// Frees the buffers that earlier changes erased, with the lock paused: clients have had until
  /// now to stop reading.
  void xFreeRetired() OX_REQUIRES(fVisionModulesLock);

  // --- buffers/lending.cpp ---
  class RemoteReply;  ///< buffers/remotereply.h
  /// Ends the claim's hold on a raw buffer; there must be one.
  void xEndHold(const Claim& pClaim) OX_REQUIRES(fVisionModulesLock);
  class PinScope;  ///< buffers/pinscope.h
  /// Clears the claim's hold, whose read count has been dropped, and wakes those who wait for that.
  void xForgetHold(const Claim& pClaim) OX_REQUIRES_SHARED(fVisionModulesLock);
  /// What releaseImage does if the subscriber holds nothing but converted images of the pools;
  /// false, with nothing done, if it does.
  bool xReleaseSharedImage(const std::string& pId);
  /// Whether the claim's hold is such an image, or there is none.
  bool xIsShared(const Claim& pClaim) const OX_REQUIRES_SHARED(fVisionModulesLock);
  /// Puts a new buffer in the place of one that is only pinned any more, in either pool.
  void xReplacePinned(RealCameraProperties& pCamera, const BufferPtr& pBuffer)
      OX_REQUIRES(fVisionModulesLock);
  /// Ends the claim's hold, if any, on a converted image or on a raw one.
  void xReleaseConverted(const Claim& pClaim) OX_REQUIRES(fVisionModulesLock);
  /// Ends all holds of a subscriber, on every camera.
  void xReleaseAllConverted(const boost::shared_ptr<VisionModuleInfo>& pSubscriber)
      OX_REQUIRES(fVisionModulesLock);
  /// The same by id, of a subscriber that did not release.
  void xForceReleaseBuffer(const std::string& pId) OX_REQUIRES(fVisionModulesLock);
  // What releaseImage, releaseImages and releaseDirectRawImage(s) release.
  void xReleaseImage(const boost::shared_ptr<VisionModuleInfo>& pSubscriber)
      OX_REQUIRES(fVisionModulesLock);
  void xReleaseImages(const boost::shared_ptr<VisionModuleInfo>& pSubscriber)
      OX_REQUIRES(fVisionModulesLock);
  bool xReleaseOwnRawImages(const VisionModuleInfo& pSubscriber) OX_REQUIRES(fVisionModulesLock);
  void xReleaseRawImage(const boost::shared_ptr<VisionModuleInfo>& pSubscriber)
      OX_REQUIRES(fVisionModulesLock);
  void xReleaseAllRawImages(const boost::shared_ptr<VisionModuleInfo>& pSubscriber)
      OX_REQUIRES(fVisionModulesLock);
  /// Drops a pin and its read count; the last one of a raw buffer returns the frame to the camera.
  void xUnpin(int pCamera, OXVisionBuffer& pBuffer) OX_REQUIRES(fVisionModulesLock);

  // --- delivery/conversion.cpp ---
  class ConversionScope;
  /// The raw image in the claim's format, with one read count; null when no buffer is free. The raw
  /// image is held or pinned by the caller; pSource tells its frame from others. Pauses the lock.
  BufferPtr xConvertImage(const Claim& pClaim, const OXImage& pRawImage, const void* pSource,
                          const FrameMark& pMark) OX_REQUIRES(fVisionModulesLock);
  /// The frame of a camera in the format of a stream, lent once; null, after a record, when it
  /// can't be had. Pauses the lock.
  BufferPtr xConvertFrame(const FrameRequest& pRequest, const LentFrame& pFrame)
      OX_REQUIRES(fVisionModulesLock);
  /// The same into memory that is nobody else's; false after a record.
  bool xConvertInto(const FrameRequest& pRequest, const LentFrame& pFrame, OXImage& pTarget)
      OX_REQUIRES(fVisionModulesLock);
  void xLogNoConversion(const OXImage& pRawImage) const;
  /// The same for a raw image that was lent to the claim's subscriber.
  BufferPtr xConvertHeldImage(const Claim& pClaim, const OXImage& pRawImage)
      OX_REQUIRES(fVisionModulesLock);
  /// The buffer of a conversion that another request has begun, with one read count, after its end,
  /// which is waited for with the lock paused; null when it failed.
  BufferPtr xAwaitConversion(RealCameraProperties& pCamera, BufferPtr pBuffer)
      OX_REQUIRES(fVisionModulesLock);
  /// The result of another request's conversion of the same frame, with one read count; null when
  /// none is under way.
  BufferPtr xJoinConversion(const Claim& pClaim, const OXImage& pRawImage, const void* pSource)
      OX_REQUIRES(fVisionModulesLock);
  /// The kernels of pixels/colour/kernels.h, from a raw kYUV422 image to the destination, whose
  /// width and height say what is made. They trust their caller and are called without the lock.
  static void xYUV422toYuv(const OXImage* pSource, OXImage* pDestination);
  static void xYUV422toHsy(const OXImage* pSource, OXImage* pDestination);
  static void xYUV422toYUV422(const OXImage* pSource, OXImage* pDestination);
  static void xYUV422toYUV(const OXImage* pSource, OXImage* pDestination);
  static void xYUV422toRGB(const OXImage* pSource, OXImage* pDestination);
  static void xYUV422toHSY(const OXImage* pSource, OXImage* pDestination);
  static void xYUV422toBGR(const OXImage* pSource, OXImage* pDestination);
  static void xYUV422toYYCbCr(const OXImage* pSource, OXImage* pDestination);
  static void xYUV422toH2RGB(const OXImage* pSource, OXImage* pDestination);
  static void xYUV422toHSMixed(const OXImage* pSource, OXImage* pDestination);
  struct ColorKernel;
  /// Null for a colour space that has no kernel.
  static const ColorKernel* xFindKernel(int pColorSpace);
  /// Whether a conversion writes every pixel. Else foreign memory would keep old ones.
  static bool xFillsImage(int pColorSpace);
  /// Leaves the destination untouched and returns false when it can't convert, which is worth a
  /// record but for images without pixels. Called without the lock.
  bool xConvertPixels(const OXImage& pRawImage, OXImage& pDestination, int pColorSpace);
  /// Reads the frame once from start to end; changes nothing that can be seen. Called without the
  /// lock.
  void xApplyPatchForKernelMemcopy(const OXImage* pSource);

  // --- delivery/single.cpp ---
  OXImage* xGetImage(const Claim& pClaim) OX_REQUIRES(fVisionModulesLock);
  /// What getImageLocal returns if it is a shared image; null also when nothing was looked at.
  OXImage* xGetSharedImage(const std::string& pId);
  /// Turns the read count that a conversion or a search left on the buffer into the claim's hold.
  /// Null for null.
  OXImage* xLendConverted(const Claim& pClaim, BufferPtr pBuffer)
      OX_REQUIRES_SHARED(fVisionModulesLock);
  // Both with one read count, or null when there is none.
  /// A converted image that is young enough.
  BufferPtr xFindFreshImage(const Claim& pClaim, std::int64_t pNowUs)
      OX_REQUIRES_SHARED(fVisionModulesLock);
  /// One that another request is converting.
  BufferPtr xAwaitFreshImage(const Claim& pClaim, std::int64_t pNowUs)
      OX_REQUIRES(fVisionModulesLock);
  /// True when a raw image was young enough: pImage is then the result, null if it could not be
  /// converted.
  bool xReuseRawImage(const Claim& pClaim, std::int64_t pNowUs, OXImage*& pImage)
      OX_REQUIRES(fVisionModulesLock);
  /// Releases what the request took from the camera; a failure is only logged.
  void xReleaseRawImages(const VisionModuleInfo& pSubscriber) OX_REQUIRES(fVisionModulesLock);

  // --- frames/framesource.cpp ---
  class Subscription;  ///< frames/subscription.h
  bool xEndStream(const boost::shared_ptr<VisionModuleInfo>& pSubscriber);
  boost::shared_ptr<FrameListener> xListener() const;
  void xTellSubscriberEnded() const;

  // --- frames/taking.cpp ---
  class SourceScope;
  /// What FrameSubscription::take() does in the device. Throws OXError, after a record, when the
  /// camera can't be opened or a turn can't be had.
  FrameSubscription::Result xTake(const FrameRequest& pRequest, TakenFrame& pTaken);
  FrameSubscription::Result xTakeFromCamera(const FrameRequest& pRequest, TakenFrame& pTaken)
      OX_REQUIRES(fVisionModulesLock);
  /// True when the frame of this number is converted already.
  bool xShareFrame(const FrameRequest& pRequest, std::uint64_t pNumber, TakenFrame& pTaken);
  /// The same, also when it is being converted, which is waited for with the lock paused.
  bool xJoinFrame(const FrameRequest& pRequest, std::uint64_t pNumber, TakenFrame& pTaken)
      OX_REQUIRES(fVisionModulesLock);
  /// Whether nobody else wants the camera's frames in this format.
  bool xIsAlone(const FrameRequest& pRequest) const OX_REQUIRES_SHARED(fVisionModulesLock);
  /// Whether the camera runs, after it was started if need be.
  bool xStartForFrames(const FrameRequest& pRequest) OX_REQUIRES(fVisionModulesLock);
  static void xCountLent(OXVisionBuffer& pBuffer);
  /// The buffer, which counts as lent, is the result.
  static void xPass(const BufferPtr& pBuffer, TakenFrame& pTaken);
  void xGiveBack(int pCamera, FrameSubscription::Pixels pPixels,
                 const boost::shared_ptr<void>& pBuffer) noexcept;

  // --- delivery/multi.cpp ---
  std::vector<OXImage*> xGetImages(const boost::shared_ptr<VisionModuleInfo>& pSubscriber)
      OX_REQUIRES(fVisionModulesLock);
  /// Converts what was lent to the claim's subscriber, and lends the result in its place.
  OXImage* xReplaceByConverted(const Claim& pClaim, const OXImage& pRawImage)
      OX_REQUIRES(fVisionModulesLock);
  void xAddToReply(RemoteReply& pReply, const boost::shared_ptr<VisionModuleInfo>& pSubscriber,
                   const std::vector<OXImage*>& pImages) const
      OX_REQUIRES_SHARED(fVisionModulesLock);
  /// One bool a stream: whether pLend lent an image for it. Nothing fails after that: the images of
  /// a request that throws would stay held.
  static OXValue xDeliveryFlags(const VisionModuleInfo& pSubscriber,
                                const std::function<std::vector<OXImage*>()>& pLend);

  // --- delivery/raw.cpp ---
  OXImage* xGetRawImage(const Claim& pClaim) OX_REQUIRES(fVisionModulesLock);

  // --- delivery/grabber.cpp ---
  RealCameraProperties* xGrabberCamera(int pCamera, const char* pFunction,
                                       const GrabberTexts& pTexts) const;
  void xLogGrabber(int pLevel, const char* pFunction, const char* pText,
                   const GrabberTexts& pTexts) const;

  // --- subscribers/settings.cpp ---
  bool xChangeSetting(const std::string& pId, const SettingChange& pChange,
                      OXSourceLocation pWhere = OXSourceLocation::current());
  bool xApplySetting(const Claim& pClaim, const SettingChange& pChange)
      OX_REQUIRES(fVisionModulesLock);
  // --- subscribers/parameters.cpp ---
  /// xSetParam() in the turn of the cameras.
  bool xChangeParam(int pCamera, int pParam, int pValue, bool pSetDefault)
      OX_REQUIRES(fVisionModulesLock);
  // --- subscribers/negotiation.cpp ---
  /// Updates the camera, which runs at pReal, if a wish that changed from pOld to pNew decides.
  bool xFollowChange(int pCamera, int pOld, int pNew, int pReal) OX_REQUIRES(fVisionModulesLock);
  /// Updates the camera if the claim's subscriber may be the one that keeps it high.
  void xLowerCamera(const Claim& pClaim) OX_REQUIRES(fVisionModulesLock);
  // --- subscribers/multisettings.cpp ---
  bool xSetStreamResolution(const Claim& pClaim, int pResolution) OX_REQUIRES(fVisionModulesLock);
  bool xSetStreamColorSpace(const Claim& pClaim, int pColorSpace) OX_REQUIRES(fVisionModulesLock);

  // --- delivery/recording.cpp ---
  // In the subscriber's turn; files are written and closed with the lock paused.
  /// Ends a recording, if there is one; always true. The status gives pReason for one that is not
  /// complete.
  bool xCloseVideo(const boost::shared_ptr<VisionModuleInfo>& pSubscriber, const char* pReason)
      OX_REQUIRES(fVisionModulesLock);
  /// Ends what is told of the subscriber's recording, if there is one.
  void xEndRecord(VisionModuleInfo& pSubscriber, RecordingState pState, std::string_view pReason)
      OX_REQUIRES(fVisionModulesLock);
  /// Writes the frame of one request if it is due, and ends the recording when it is complete.
  void xRecord(const boost::shared_ptr<VisionModuleInfo>& pSubscriber, const OXImage& pRawImage,
               bool pApplyPatch) OX_REQUIRES(fVisionModulesLock);

  // --- status/status.cpp: both return what they count ---
  static OXImage* xCountServed(VisionModuleInfo& pSubscriber, OXImage* pImage);
  static std::vector<OXImage*> xCountServed(VisionModuleInfo& pSubscriber,
                                            std::vector<OXImage*> pImages);

  // --- published/publish.cpp, published/publishdeprecated.cpp ---
  void xBindMethods();
  void xBindDeprecatedMethods();

  /// The buffers that were erased last, until somebody next comes or goes: a client of this process
  /// may still be reading one. Few, since each one keeps storage for the largest format, and in
  /// place, since erasing a buffer must not fail.
  static constexpr std::size_t kRetiredBuffers = 4;
  std::array<BufferPtr, kRetiredBuffers> fRetired OX_GUARDED_BY(fVisionModulesLock);
  std::size_t fNextRetired OX_GUARDED_BY(fVisionModulesLock) = 0;
  RecordingLog fRecordings OX_GUARDED_BY(fVisionModulesLock);
  int fSubscriberLimit OX_GUARDED_BY(fVisionModulesLock) = 256;
  static constexpr std::size_t kMostCameras = 4;  ///< whose spare buffers are freed at once
  /// Without it a push and a step ask for no listener.
  std::atomic<bool> fHasListener{false};
  mutable detail::Mutex fListenerGuard;
  boost::weak_ptr<FrameListener> fListener OX_GUARDED_BY(fListenerGuard);
};

}  // namespace OX
