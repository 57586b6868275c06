/// The operations of the service OXVideoDevice, as a module of the same process calls them.
#pragma once

#include <string>
#include <vector>

#include <oxframework/oxapi.h>
#include <oxframework/oxvalue.h>

namespace OX {

class OXImage;

/// The device, seen by a module of the same process, which gets it from
/// dynamic_cast<OX::IVideoInput*>(broker->getModule("OXVideoDevice").get()). The pointer is
/// borrowed: keep the module's shared pointer for as long as the interface is used.
///
/// Conventions:
/// - pId is what a subscribe operation returned; pName is what a caller asks to be called and not
///   yet an id. A mono-stream subscriber (subscribe, subscribeCamera) uses the singular operations,
///   a multi-stream one (subscribeCameras) the plural ones; each family refuses the other's
///   subscribers.
/// - Cameras are numbered from 0. A subscriber's current camera is its own, or the device's active
///   camera if it subscribed with a negative index.
/// - Resolutions (kQQVGA to k4VGA), colour spaces (0 to 16) and parameter identifiers are those of
///   oxdefinitions.h. Frame rates are images per second.
/// - Misuse (an unknown subscriber, the wrong family, an index outside its range, a list of the
///   wrong length) throws OXError and changes nothing. Having no image is not an error: null, an
///   invalid OXValue or an empty list. A refusal is false or 0.
/// - All operations are thread-safe: they may be called at any time from any thread. Waits end when
///   what they wait for has happened, at the latest after the bounds given here. Calls of different
///   subscribers wait for each other only where both need the same conversion or the same step of a
///   replay. Those of one subscriber follow each other, except for getters, and so do changes of
///   what cameras run at: a call that has waited 10 s for its turn throws OXError.
///
/// docs/reference.md describes each operation in full, with examples.
class OX_API IVideoInput {
 public:
  virtual ~IVideoInput() = default;

  /// Ends a subscription, of either family, and its recording. If a mono-stream subscriber holds an
  /// image, waits up to 10 s for the release, then takes the image back; a multi-stream one is not
  /// waited for. Pointers to its images are invalid afterwards.
  virtual void unsubscribe(const std::string& pId) = 0;

  /// \name What a camera is and does now
  /// All throw OXError for an index outside 0 to the number of cameras - 1. The model is 1
  /// (kOV7670), 2 (kMT9M114) or 0 for a camera without one. Starting and stopping are true also
  /// when there is nothing to do; starting throws if the source can't be opened. Frame rate,
  /// resolution (-1 if it is none of the four) and colour space are the camera's own, not those of
  /// a subscriber.
  /// @{
  virtual int getCameraModel(const int& pCameraIndex) = 0;
  virtual bool startFrameGrabber(const int& pCameraIndex) = 0;
  virtual bool stopFrameGrabber(const int& pCameraIndex) = 0;
  virtual bool isFrameGrabberOff(const int& pCameraIndex) = 0;
  virtual int getFrameRate(const int& pCameraIndex) = 0;
  virtual int getResolution(const int& pCameraIndex) = 0;
  virtual int getColorSpace(const int& pCameraIndex) = 0;
  /// @}

  /// Subscribes to one camera and starts its grabber; a negative index follows the device's active
  /// camera. Fewer than 5 images per second become 5, more than 255 become 255, and k4VGA always
  /// starts at 5 (setFrameRate can raise it).
  /// Returns the id: pName, or pName_2 to pName_8 when the name is in use. What a client in another
  /// process subscribes ends with its connection at the latest (OXOwnership); any other subscriber
  /// stays until it is unsubscribed.
  /// Throws OXError for a format or camera that the device does not have, for the ninth subscriber
  /// of a name, and when memory or the limit of subscribers (256) is exhausted.
  virtual std::string subscribeCamera(const std::string& pName, const int& pCameraIndex,
                                      const int& pResolution, const int& pColorSpace,
                                      const int& pFps) = 0;

  /// \name Settings of a mono-stream subscriber
  /// The frame rate is that of either family, 1 to 30 when set. The setters of resolution, colour
  /// space and frame rate wait up to 5 s for a held image and return false, with nothing changed,
  /// if it stays held; setActiveCamera does not wait and returns false at once. A value outside its
  /// range throws OXError. Camera parameters go to the current camera as they are and change no
  /// subscriber's settings; one that the camera does not have throws.
  /// @{
  virtual int getFrameRate(const std::string& pId) = 0;
  virtual bool setFrameRate(const std::string& pId, const int& pFrameRate) = 0;
  virtual int getActiveCamera(const std::string& pId) = 0;
  virtual bool setActiveCamera(const std::string& pId, const int& pCameraIndex) = 0;
  virtual int getResolution(const std::string& pId) = 0;
  virtual bool setResolution(const std::string& pId, const int& pResolution) = 0;
  virtual int getColorSpace(const std::string& pId) = 0;
  virtual bool setColorSpace(const std::string& pId, const int& pColorSpace) = 0;
  virtual int getCameraParameter(const std::string& pId, const int& pParam) = 0;
  virtual bool setCameraParameter(const std::string& pId, const int& pParam, const int& pValue) = 0;
  virtual bool setCameraParameterToDefault(const std::string& pId, const int& pParam) = 0;
  /// @}

  /// \name Images of a mono-stream subscriber
  /// getImage... converts the newest frame to the subscriber's format, getDirectRawImage... returns
  /// it in the camera's own. Local: the pixels stay the device's, to be read only, valid until the
  /// release; null when there is no image. A subscriber holds one image of a camera at a time, and
  /// either release ends the hold. Remote: a copy, the array of OXImage::toOXValue(), or invalid;
  /// nothing stays held. A request waits up to 1 s for a simulator's first frame, or for a release
  /// while subscribers hold all five frames of a replay. The releases are true also when nothing
  /// was held. getImage... throws OXError while an image is held, getDirectRawImage... then has no
  /// image.
  /// @{
  virtual OXImage* getDirectRawImageLocal(const std::string& pId) = 0;
  virtual OXValue getDirectRawImageRemote(const std::string& pId) = 0;
  virtual bool releaseDirectRawImage(const std::string& pId) = 0;
  virtual OXImage* getImageLocal(const std::string& pId) = 0;
  virtual OXValue getImageRemote(const std::string& pId) = 0;
  virtual bool releaseImage(const std::string& pId) = 0;
  /// @}

  /// Subscribes to several cameras at once, each in a format of its own: arrays of ints of equal
  /// length, one element a camera, no camera twice. Frame rate, id and errors as in
  /// subscribeCamera; empty lists, lists of different lengths and repeated cameras throw too.
  virtual std::string subscribeCameras(const std::string& pName, const OXValue& pCameraIndexes,
                                       const OXValue& pResolutions, const OXValue& pColorSpaces,
                                       const int& pFps) = 0;

  /// \name Settings of a multi-stream subscriber
  /// Arrays of ints in the order of its cameras, except that getResolutions and getColorSpaces read
  /// by position: element i is the wish for camera i. The setters return one 1 or 0 a stream:
  /// whether it was changed or is the same. They wait for nothing: setActiveCameras takes back
  /// images that are still held, the others return 0 where no buffer is free to be reformatted.
  /// @{
  virtual OXValue getActiveCameras(const std::string& pId) = 0;
  virtual OXValue setActiveCameras(const std::string& pId, const OXValue& pCameraIndices) = 0;
  virtual OXValue getResolutions(const std::string& pId) = 0;
  virtual OXValue setResolutions(const std::string& pId, const OXValue& pResolutions) = 0;
  virtual OXValue getColorSpaces(const std::string& pId) = 0;
  virtual OXValue setColorSpaces(const std::string& pId, const OXValue& pColorSpaces) = 0;
  virtual OXValue getCamerasParameter(const std::string& pId, const int& pParam) = 0;
  virtual OXValue setCamerasParameter(const std::string& pId, const int& pParam,
                                      const OXValue& pValues) = 0;
  virtual OXValue setCamerasParameterToDefault(const std::string& pId, const int& pParam) = 0;
  /// @}

  /// \name Images of a multi-stream subscriber
  /// Local: one bool a stream, whether an image is held for it; there is no way to its pixels.
  /// Remote: the arrays of all images, each with an empty array in place of its pixels, then one
  /// binary with the pixels of all, in the same order. getImages... throws OXError if a camera has
  /// no image. The releases return one 1 or 0 a stream.
  /// @{
  virtual OXValue getDirectRawImagesLocal(const std::string& pId) = 0;
  virtual OXValue getDirectRawImagesRemote(const std::string& pId) = 0;
  virtual OXValue releaseDirectRawImages(const std::string& pId) = 0;
  virtual OXValue getImagesLocal(const std::string& pId) = 0;
  virtual OXValue getImagesRemote(const std::string& pId) = 0;
  virtual OXValue releaseImages(const std::string& pId) = 0;
  /// @}

  /// \name Recording of a mono-stream subscriber
  /// Writes the raw frames that the subscriber's own requests take to the .oxv file pPath, which is
  /// replaced: one frame in pPeriod requests, pTotalNumber frames (both at least 1). False if the
  /// file can't be opened. stopVideo closes the file and is true also when there is none.
  /// @{
  virtual bool recordVideo(const std::string& pId, const std::string& pPath,
                           const int& pTotalNumber, const int& pPeriod) = 0;
  virtual bool stopVideo(const std::string& pId) = 0;
  /// @}

  /// \name For simulators
  /// Throw OXError if the device has no simulated cameras. putImage pushes a frame: a binary of
  /// pWidth * pHeight * 3 bytes in one of the four resolutions, red, green, blue, rows top down. It
  /// is copied, and stamped with the moment of its arrival. False for another size or an unknown
  /// camera, and after 1 s in which other pushes keep all buffers in use. The expected parameters
  /// are [[width, height], frames per second]: what the camera runs at; frames of the other
  /// resolutions are resampled. A change of them raises the event "VideoInput/ExpectedImage" with
  /// [camera, width, height, frames per second].
  /// @{
  virtual bool putImage(const int& pCameraIndex, const int& pWidth, const int& pHeight,
                        const OXValue& pImage) = 0;
  virtual OXValue getExpectedImageParameters(const int& pCameraIndex) = 0;
  /// @}

  /// \name Geometry
  /// Pairs [x, y]: image positions as fractions of width and height from the top left corner, image
  /// sizes as fractions of them; angular positions in radians from the camera's axis, positive to
  /// the left and to the bottom, angular sizes in radians. Information is a position and a size, 4
  /// numbers; with a resolution it is returned in pixels of that. Values outside 0 to 1 are
  /// extrapolated, except that image sizes must lie in 0 to 1, both included. Throw OXError for an
  /// unknown camera or resolution and for a list of another length. They wait for no lock.
  /// @{
  virtual std::vector<float> getAngularPositionFromImagePosition(
      const int& pCameraIndex, const std::vector<float>& pImagePosition) = 0;
  virtual std::vector<float> getImagePositionFromAngularPosition(
      const int& pCameraIndex, const std::vector<float>& pAngularPosition) = 0;
  virtual std::vector<float> getAngularSizeFromImageSize(const int& pCameraIndex,
                                                         const std::vector<float>& pImageSize) = 0;
  virtual std::vector<float> getImageSizeFromAngularSize(
      const int& pCameraIndex, const std::vector<float>& pAngularSize) = 0;
  virtual std::vector<float> getImageInfoFromAngularInfo(
      const int& pCameraIndex, const std::vector<float>& pAngularInfo) = 0;
  virtual std::vector<float> getImageInfoFromAngularInfoWithResolution(
      const int& pCameraIndex, const std::vector<float>& pAngularInfo, const int& pResolution) = 0;
  /// @}

  /// \name The older vocabulary
  /// Each does for the device's active camera what its namesake does for a camera that is named;
  /// subscribe makes a subscriber that follows the active camera. startFrameGrabber and
  /// stopFrameGrabber act on all cameras. unsubscribeAllInstances ends pName and pName_2 to
  /// pName_7. onClientDisconnected is the callback of the event "ClientDisconnected".
  /// setSimCamInputSize declares the size of the frames that the putImage without a size pushes.
  /// resolutionToSizes returns [width, height] in pixels, sizesToResolution -1 for a size that is
  /// no resolution. While the active camera is set to one that does not exist, operations that need
  /// it throw OXError, and putImage returns false.
  /// @{
  virtual std::string subscribe(const std::string& pName, const int& pResolution,
                                const int& pColorSpace, const int& pFps) = 0;
  virtual void onClientDisconnected(const std::string& pEventName, const OXValue& pValue,
                                    const std::string& pSubscriberId) = 0;
  virtual void unsubscribeAllInstances(const std::string& pName) = 0;
  virtual int getActiveCamera() = 0;
  virtual int getCameraModelID() = 0;
  virtual int getResolution() = 0;
  virtual int getColorSpace() = 0;
  virtual int getFrameRate() = 0;
  virtual int getParam(const int& pParam) = 0;
  virtual void setParam(const int& pParam, const int& pValue) = 0;
  virtual void setParamDefault(const int& pParam) = 0;
  virtual bool startFrameGrabber() = 0;
  virtual bool stopFrameGrabber() = 0;
  virtual bool isFrameGrabberOff() = 0;
  virtual OXValue getExpectedImageParameters() = 0;
  virtual bool setSimCamInputSize(const int& pWidth, const int& pHeight) = 0;
  virtual bool putImage(const OXValue& pImage) = 0;
  virtual std::vector<float> getAngPosFromImgPos(const std::vector<float>& pImagePosition) = 0;
  virtual std::vector<float> getAngSizeFromImgSize(const std::vector<float>& pImageSize) = 0;
  virtual std::vector<float> getImgInfoFromAngInfo(const std::vector<float>& pAngularInfo) = 0;
  virtual std::vector<float> getImgInfoFromAngInfoWithRes(const std::vector<float>& pAngularInfo,
                                                          const int& pResolution) = 0;
  virtual std::vector<float> getImgPosFromAngPos(const std::vector<float>& pAngularPosition) = 0;
  virtual std::vector<float> getImgSizeFromAngSize(const std::vector<float>& pAngularSize) = 0;
  virtual OXValue resolutionToSizes(const int& pResolution) = 0;
  virtual int sizesToResolution(const int& pWidth, const int& pHeight) = 0;
  /// @}
};

}  // namespace OX
