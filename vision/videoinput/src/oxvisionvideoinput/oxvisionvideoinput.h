/// The device core: everything that all cameras have in common.
#pragma once

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <oxframework/oxbroker.h>
#include <oxframework/oxlocks.h>
#include <oxframework/oxmodule.h>
#include <oxvision/ivideoinput.h>
#include "records.h"
#include "report.h"

namespace OX {

struct Publication;

/// The abstract module OXVideoDevice. It owns the table of cameras, the map of subscribers and
/// the pools of buffers; a concrete camera supplies the ten driver operations and fills
/// fNbCameras, fDefaultResolution and fCameraProperties in its constructor.
///
/// fVisionModulesLock is the one lock over subscribers, cameras and buffers: delivery and every
/// change take it for writing, getters for reading. Lock order, and every wait, are in
/// docs/threading.md. There is no thread of its own: all work is done on the callers' threads.
///
/// The public operations are described in ivideoinput.h. Every camera index goes through
/// xCamera(), since fActiveCamera and a caller's index may lie outside the table.
class OXVisionVideoInput : public OXModule, public IVideoInput {
 public:
  ~OXVisionVideoInput() override;

  // --- subscribers/subscribers.cpp ---
  void unsubscribe(const std::string& pName) override;
  // --- cameras.cpp ---
  int getCameraModel(const int& pCameraIndex) override;
  bool startFrameGrabber(const int& pCameraIndex) override;
  bool stopFrameGrabber(const int& pCameraIndex) override;
  bool isFrameGrabberOff(const int& pCameraIndex) override;
  int getFrameRate(const int& pCameraIndex) override;
  int getResolution(const int& pCameraIndex) override;
  int getColorSpace(const int& pCameraIndex) override;
  // --- subscribers/subscribers.cpp ---
  std::string subscribeCamera(const std::string& pName, const int& pCameraIndex,
                              const int& pResolution, const int& pColorSpace,
                              const int& pFps) override;
  // --- subscribers/settings.cpp ---
  int getFrameRate(const std::string& pName) override;
  bool setFrameRate(const std::string& pName, const int& pFrameRate) override;
  int getActiveCamera(const std::string& pName) override;
  bool setActiveCamera(const std::string& pName, const int& pCameraIndex) override;
  int getResolution(const std::string& pName) override;
  bool setResolution(const std::string& pName, const int& pResolution) override;
  int getColorSpace(const std::string& pName) override;
  bool setColorSpace(const std::string& pName, const int& pColorSpace) override;
  // --- subscribers/parameters.cpp ---
  int getCameraParameter(const std::string& pName, const int& pParam) override;
  bool setCameraParameter(const std::string& pName, const int& pParam, const int& pValue) override;
  bool setCameraParameterToDefault(const std::string& pName, const int& pParam) override;
  // --- delivery/raw.cpp ---
  OXImage* getDirectRawImageLocal(const std::string& pName) override;
  OXValue getDirectRawImageRemote(const std::string& pName) override;
  bool releaseDirectRawImage(const std::string& pName) override;
  // --- delivery/single.cpp ---
  OXImage* getImageLocal(const std::string& pName) override;
  OXValue getImageRemote(const std::string& pName) override;
  bool releaseImage(const std::string& pName) override;
  // --- subscribers/subscribers.cpp ---
  std::string subscribeCameras(const std::string& pName, const OXValue& pCameraIndexes,
                               const OXValue& pResolutions, const OXValue& pColorSpaces,
                               const int& pFps) override;
  // --- subscribers/settings_multi.cpp ---
  OXValue getActiveCameras(const std::string& pName) override;
  OXValue setActiveCameras(const std::string& pName, const OXValue& pCameraIndices) override;
  OXValue getResolutions(const std::string& pName) override;
  OXValue setResolutions(const std::string& pName, const OXValue& pResolutions) override;
  OXValue getColorSpaces(const std::string& pName) override;
  OXValue setColorSpaces(const std::string& pName, const OXValue& pColorSpaces) override;
  // --- subscribers/parameters.cpp ---
  OXValue getCamerasParameter(const std::string& pName, const int& pParam) override;
  OXValue setCamerasParameter(const std::string& pName, const int& pParam,
                              const OXValue& pValues) override;
  OXValue setCamerasParameterToDefault(const std::string& pName, const int& pParam) override;
  // --- delivery/raw.cpp ---
  OXValue getDirectRawImagesLocal(const std::string& pName) override;
  OXValue getDirectRawImagesRemote(const std::string& pName) override;
  OXValue releaseDirectRawImages(const std::string& pName) override;
  // --- delivery/multi.cpp ---
  OXValue getImagesLocal(const std::string& pName) override;
  OXValue getImagesRemote(const std::string& pName) override;
  OXValue releaseImages(const std::string& pName) override;
  // --- delivery/recording.cpp ---
  bool recordVideo(const std::string& pName, const std::string& pPath, const int& pTotalNumber,
                   const int& pPeriod) override;
  bool stopVideo(const std::string& pName) override;
  // --- cameras.cpp: refused here, the simulator overrides them ---
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
  // Called with fVisionModulesLock held unless it says const. Each must survive any camera index.
  virtual bool xIsResolutionValid(int pResolution, int pCamera) const = 0;
  virtual bool xIsFrameRateValid(int pFrameRate, int pCamera) const = 0;
  virtual bool xIsColorSpaceValid(int pColorSpace, int pCamera) const = 0;
  /// The newest raw frame for this subscriber's camera, held for it; null when there is none.
  virtual OXImage* xGetDirectRawImage(const std::string& pName, bool pDeepCopy) = 0;
  /// The same for each camera of a multi-stream subscriber. Null for one that has no buffer free;
  /// shorter than the list, or empty, when a camera failed.
  virtual std::vector<OXImage*> xGetDirectRawImages(const std::string& pName) = 0;
  /// Gives back what the subscriber holds on a camera; true also when that is nothing.
  virtual bool xReleaseDirectRawImageDeep(const std::string& pName, const int& pCamera) = 0;
  /// Throw OXError for an identifier that the camera does not handle.
  virtual int xGetParam(const int& pCameraIndex, const int& pParam) = 0;
  virtual bool xSetParam(int pCameraIndex, int pParam, int pValue, bool pSetDefault) = 0;
  /// True also when it runs already.
  virtual bool xStartFrameGrabber(const int& pCameraIndex) = 0;
  virtual bool xStopFrameGrabber(const int& pCameraIndex) = 0;

 protected:
  // --- workers: fVisionModulesLock held for writing, subscriber checked by the caller ---
  virtual OXImage* xGetImage(const std::string& pName);
  virtual std::vector<OXImage*> xGetImages(const std::string& pName);

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
  // --- cameras.cpp ---
  bool startFrameGrabber() override;
  bool stopFrameGrabber() override;
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
  // --- cameras.cpp: refused here, the simulator overrides them ---
  OXValue getExpectedImageParameters() override;
  bool setSimCamInputSize(const int& pWidth, const int& pHeight) override;
  bool putImage(const OXValue& pImage) override;
  // --- geometry.cpp: apertures in radians; any camera but model 1 has the second lens ---
  virtual float xHorizontalApertureRad(int pCamera);
  virtual float xVerticalApertureRad(int pCamera);

  // --- published, but not virtual ---
  /// delivery/raw.cpp: takes a raw image and gives it back; "lastVideoBuffer", or "" for an unknown
  /// id.
  std::string getDirectRawImageInterprocess(const std::string& pName);
  /// subscribers/parameters.cpp
  int getParam(const int& pParam, const int& pCameraIndex);
  /// subscribers/parameters.cpp: changes the active camera of the whole device.
  bool setActiveCamera(const int& pCameraIndex);

  /// How many subscribers there may be at once; a further one fails to allocate. 256 at the start.
  void setSubscriberLimit(int pLimit);

  /// Splits a time stamp into seconds and the remaining microseconds, both truncated towards 0.
  static std::pair<std::int64_t, std::int64_t> getTimeStamp(const OXImage& pImage);

 protected:
  using BufferPool = std::vector<boost::shared_ptr<OXVisionBuffer>>;

  /// Publishes all methods and subscribes to "ClientDisconnected". Without a memory service the
  /// device works all the same, with a record in the log.
  OXVisionVideoInput(boost::shared_ptr<OXBroker> pBroker, std::string pName);

  /// subscribers/parameters.cpp: brings a camera to the highest resolution and frame rate that any subscriber
  /// asks for. Needs the lock for writing. Always true; does nothing for an unknown camera.
  bool xUpdateParam(const int& pCameraIndex);

  /// The one checked way to a camera: null outside the table.
  RealCameraProperties* xCamera(int pCameraIndex) const;
  /// The camera, or a record and OXError(pMethod) "pBegin INDEX ) : invalid Camera index".
  RealCameraProperties& xCheckedCamera(int pCameraIndex, const char* pBegin,
                                       const char* pMethod) const;
  /// The subscriber's own camera, or the device's active one when it follows it.
  int xCurrentCamera(const VisionModuleInfo& pModule) const;

  /// Called under the lock when the last reader of a raw buffer is gone: the camera takes back the
  /// frame that it lent, if it lent one.
  virtual void xReturnRawSource(int pCameraIndex, OXVisionBuffer& pBuffer) = 0;

  // --- delivery/raw.cpp: what both cameras do to lend a frame; the lock is held for writing ---
  /// Lets a free raw buffer of the camera point at the pixels of pFrame, which pSource keeps, and
  /// gives the subscriber a hold on it. Null when all buffers of the camera are in use.
  OXVisionBuffer* xLendFrame(int pCameraIndex, const OXImage& pFrame,
                             const boost::shared_ptr<void>& pSource,
                             RequestedCameraProperties& pWish);
  /// Ends what the subscriber holds on a camera, whatever it is.
  void xEndHold(int pCameraIndex, RequestedCameraProperties& pWish);

  // --- buffers/pool.cpp: all need the lock for writing ---
  bool xCreateBuffersForStoringImages(const int& pCameraIndex, const int& pResolution,
                                      const int& pColorSpace);
  /// Searches, which give an index with the buffer's count raised, or -1. "Oldest for editing":
  /// nobody uses it. "Newest for reading": nobody writes it. The lower index wins a tie.
  int xLockTheOldestBufferForEditing(const std::int8_t& pCamera, int pWidth, int pHeight,
                                     int pColorSpace);
  int xLockTheOldestBufferForEditing(const std::int8_t& pCamera);
  int xLockTheNewestBufferForReading(const std::int8_t& pCamera, int pWidth, int pHeight,
                                     int pColorSpace);
  int xLockTheNewestBufferForReading(const std::int8_t& pCamera);
  /// Take one buffer out of a pool: the oldest free one (of the record's format on its active
  /// camera if there is one), else the oldest at all, which then lives until its last release.
  void xFindAndEraseTheOldestBuffer(BufferPool& pPool);
  void xFindAndEraseTheOldestBuffer(BufferPool& pPool,
                                    const boost::shared_ptr<VisionModuleInfo>& pInfo);
  /// Takes back all that a subscriber holds, on every camera.
  void xForceReleaseBuffer(const std::string& pName);

  std::atomic<int> fActiveCamera{0};  ///< may lie outside the table: see xCamera
  int fDefaultResolution = -1;        ///< what a camera falls back to when nobody needs more
  int fNbCameras = 0;
  std::vector<boost::shared_ptr<RealCameraProperties>> fCameraProperties;
  boost::shared_ptr<OXMutexRW> fVisionModulesLock;
  boost::shared_ptr<OXMutex> fParametersLock;
  std::map<std::string, boost::shared_ptr<VisionModuleInfo>> fVisionModules;

 private:
  friend class DeviceProbe;  ///< tests look at the counters through it

  enum class Family { Mono, Multi, Any };
  class ReadPin;
  struct SettingChange;

  // --- subscribers/subscribers.cpp ---
  std::string xFindFreeId(const std::string& pName, bool pIsMultiStream);
  boost::shared_ptr<VisionModuleInfo> xAddSubscriber(const std::string& pId, const char* pMethod,
                                                     int pFrameRate, int pResolution,
                                                     int pColorSpace);
  void xStartForSubscriber(int pCamera, int pResolution, int pFrameRate, const char* pMethod);
  void xGiveBuffers(VisionModuleInfo& pModule, const std::vector<int>& pCameras,
                    const char* pMethod);
  void xTakeBuffers(const boost::shared_ptr<VisionModuleInfo>& pModule, int pCamera);
  void xLowerCamera(const VisionModuleInfo& pModule, int pCamera);
  void xLeaveMono(const boost::shared_ptr<VisionModuleInfo>& pModule, int pCamera);
  void xLeaveMulti(const boost::shared_ptr<VisionModuleInfo>& pModule);
  void xCheckSubscribeCameras(const std::string& pName, const std::vector<int>& pCameras,
                              const std::vector<int>& pResolutions,
                              const std::vector<int>& pColorSpaces) const;
  void xCheckStreams(const std::string& pName, const std::vector<int>& pCameras,
                     const std::vector<int>& pResolutions,
                     const std::vector<int>& pColorSpaces) const;
  [[noreturn]] void xFailSubscription(const char* pMethod, const std::string& pName,
                                      const std::string& pText, bool pLog) const;

  // --- lookups, shared by all areas (lifecycle.cpp) ---
  boost::shared_ptr<VisionModuleInfo> xSubscriber(const std::string& pName, Family pFamily,
                                                  const report::SubscriberTexts& pTexts) const;
  /// The subscriber's current camera, checked; throws "FUNCTION(NAME) : invalid Camera index".
  int xCheckedCurrentCamera(const VisionModuleInfo& pModule, const char* pFunction) const;
  // --- buffers/pool.cpp ---
  /// The oldest free converted image of a format, from now on without a time stamp, for the caller
  /// to give it another format; null when none is free.
  OXImage* xImageToReformat(int pCamera, int pResolution, int pColorSpace);
  void xErase(BufferPool& pPool, int pIndex);
  /// A raw buffer's reader goes; the last one gives the camera's frame back.
  void xDropReader(int pCamera, OXVisionBuffer& pBuffer);

  // --- delivery/raw.cpp ---
  void xReplaceRawBuffer(int pCameraIndex, const boost::shared_ptr<OXVisionBuffer>& pBuffer);

  // --- delivery/conversion.cpp ---
  int xConvertImage(int pCameraIndex, const boost::shared_ptr<VisionModuleInfo>& pModule,
                    const OXImage* pRawImage);
  int xLockBufferForConversion(int pCameraIndex, int pResolution, int pColorSpace);
  void xConvertPixels(const OXImage& pRawImage, OXImage& pDestination, int pColorSpace);
  void xApplyPatchForKernelMemcopy(const OXImage* pSource);

  // --- delivery/single.cpp ---
  OXImage* xLendConverted(int pCamera, VisionModuleInfo& pModule, int pBufferIndex);
  OXImage* xReuseConvertedImage(int pCamera, VisionModuleInfo& pModule, std::int64_t pNowUs);
  bool xReuseRawImage(int pCamera, const boost::shared_ptr<VisionModuleInfo>& pModule,
                      std::int64_t pNowUs, OXImage*& pImage);
  void xReleaseRawImages(const VisionModuleInfo& pModule);
  void xReleaseConverted(const std::string& pName, VisionModuleInfo& pModule, int pCamera);

  // --- delivery/multi.cpp ---
  class Snapshots;

  // --- subscribers/settings.cpp ---
  bool xChangeSetting(const std::string& pName, const SettingChange& pChange);
  bool xFollowChange(int pCamera, int pOld, int pNew, int pReal);
  // --- subscribers/settings_multi.cpp ---
  bool xSetStreamResolution(const boost::shared_ptr<VisionModuleInfo>& pModule, int pCamera,
                            int pResolution);
  bool xSetStreamColorSpace(const boost::shared_ptr<VisionModuleInfo>& pModule, int pCamera,
                            int pColorSpace);

  // --- delivery/recording.cpp ---
  bool xCloseVideo(const boost::shared_ptr<VisionModuleInfo>& pInfo);
  void xRecord(const boost::shared_ptr<VisionModuleInfo>& pModule, const OXImage& pRawImage,
               bool pApplyPatch);

  // --- published/publish.cpp, published/publish_deprecated.cpp ---
  void xPublish(const std::vector<Publication>& pPublications);
  void xBindMethods();
  void xBindDeprecatedMethods();

  std::unique_ptr<unsigned char[]> fCopyBuffer;  ///< target of xApplyPatchForKernelMemcopy
  BufferPool fRetired;  ///< lately erased: an in-process client may still look at one
  int fSubscriberLimit = 256;
};

}  // namespace OX
