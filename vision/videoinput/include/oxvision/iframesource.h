/// The frames of the cameras in their order, each with a number: for services that deliver every
/// frame as it comes.
#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <oxframework/oxapi.h>
#include <oxframework/oxdurations.h>
#include <oxvision/frame.h>

namespace OX {

/// What a stream delivers of one camera.
struct FrameFormat {
  int camera = 0;      ///< negative when a single stream is opened: the active camera, then
  int resolution = 0;  ///< kQQVGA to k4VGA
  int colorSpace = 0;
};

/// Foreign memory for the pixels of a frame.
struct FrameTarget {
  void* data = nullptr;
  std::size_t bytes = 0;
};

/// A subscriber of the device that is served frame by frame. It ends with end(), or when anybody
/// unsubscribes its id at the device; the destructor alone does not end it.
///
/// A frame is what a camera delivered once: a push of a simulator, a step of a replay. Its number
/// rises with each one, by more than 1 where some were passed over; numbers of different cameras
/// have nothing to do with each other. An image that a request reads again, under a new time stamp
/// or at another size, is no frame.
///
/// Thread-safe. Frames that are taken hold no lock and no turn: they keep their buffer, and the
/// device goes on with others.
class OX_API FrameSubscription {
 public:
  virtual ~FrameSubscription() = default;

  /// The id, by which the device's own methods know the subscriber. Settings that they change for
  /// it leave the format of its frames alone.
  virtual const std::string& id() const = 0;
  /// The format of each of its streams; cameras are resolved and valid.
  virtual const std::vector<FrameFormat>& formats() const = 0;
  /// Whether it has ended.
  virtual bool isOver() const = 0;

  /// The number of a stream's newest frame; 0 when its camera has none since it was opened, or
  /// since the stream was. Never falls otherwise. Takes no lock.
  virtual std::uint64_t newestFrame(std::size_t pStream) const = 0;
  /// Microseconds since that frame came, by the device's clock; -1 without one.
  virtual std::int64_t newestAgeUs(std::size_t pStream) const = 0;

  static constexpr int kKeptFrames = 8;

  enum class Result {
    kFrame,       ///< pFrame is the newest frame
    kNothingNew,  ///< the newest frame is no newer than pAfter
    kOver,        ///< the subscription has ended
    kFailed,      ///< no buffer was free, or the frame could not be read; a record says why
  };
  enum class Pixels {
    kConverted,  ///< in the stream's format
    kRaw,        ///< as the camera has it (kYUV422), at the camera's own size
  };
  /// The newest frame of a stream, if it came after frame pAfter. A frame is converted once for all
  /// who want its format; who asks meanwhile waits for that, at most a second. Otherwise it waits
  /// for no frame; the replay takes the step that is due. With pTarget the pixels end up there and
  /// the frame refers to them: converted straight into it when nobody else shares the format,
  /// copied once otherwise. kFailed, with the target untouched, when it is too small. Without, a
  /// subscription may keep kKeptFrames at once, and is refused more. pFrame stays as it is unless
  /// the result is kFrame. A camera that is off is started for a converted frame.
  virtual Result take(std::size_t pStream, std::uint64_t pAfter, Pixels pPixels, Frame& pFrame,
                      const FrameTarget& pTarget = {}) = 0;

  /// Ends the subscription at once, whatever its subscriber holds or records, and waits for no
  /// client. False when a call of the subscriber or a change of the cameras is under way for more
  /// than a fraction of a second: try again soon. True also when it has ended already.
  virtual bool end() = 0;
};

/// Told of frames. Each operation is called on the thread that makes the event happen, which it
/// keeps waiting: it only notes or hands on, and calls neither the device nor the broker's modules.
class OX_API FrameListener {
 public:
  virtual ~FrameListener() = default;
  /// The camera has a newer frame, or the moment of its next one has changed. Called with no lock.
  virtual void onFrame(int pCamera) = 0;
  /// A subscriber of the device has ended. May be called under the device's lock.
  virtual void onSubscriberEnded() = 0;
};

/// How long the device's work on frames took, of all cameras and for whomever it was done.
struct StageDurations {
  OXDurations push;      ///< the copy of a pushed frame
  OXDurations resample;  ///< of a pushed frame, to the camera's size and kYUV422
  OXDurations convert;   ///< to the format of a subscriber
  OXDurations copy;      ///< of a converted or raw frame to a FrameTarget
};

/// The device, seen by services that deliver frames: dynamic_cast<OX::IFrameSource*>(
/// broker->getModule("OXVideoDevice").get()). Thread-safe.
class OX_API IFrameSource {
 public:
  virtual ~IFrameSource() = default;

  /// Subscribes as subscribeCamera() does, or subscribeCameras() for several streams, with the same
  /// checks, texts, ids and limits; throws OXError as they do. pFps is asked of the cameras as it
  /// is, from 5 to 255 images a second, also for k4VGA. The cameras run at the resolution of the
  /// formats at least for as long as the subscription lasts.
  virtual boost::shared_ptr<FrameSubscription> subscribeFrames(
      const std::string& pName, const std::vector<FrameFormat>& pFormats, bool pIsMultiStream,
      int pFps) = 0;

  /// How long until a camera's next frame is due by itself: that of a replay. 0 or less: take() now
  /// takes it. Empty when only a push or a call brings one, and when the camera is off, unless
  /// another recording was selected: take() then opens it. Takes no lock.
  virtual std::optional<std::chrono::microseconds> untilNextFrame(int pCamera) const = 0;

  /// The one listener; null ends it. The device holds it weakly. A call to the old one may be under
  /// way when this returns.
  virtual void setFrameListener(const boost::weak_ptr<FrameListener>& pListener) = 0;

  /// Counted for as long as the device lives.
  virtual const StageDurations& stages() const = 0;
};

}  // namespace OX
