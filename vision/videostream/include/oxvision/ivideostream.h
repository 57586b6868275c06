/// Frames as they come, for modules of the broker's own process.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <oxframework/oxapi.h>
#include <oxvision/frame.h>
#include <oxvision/iframesource.h>

namespace OX {

/// What has become of a stream's frames. Those of all its cameras together.
struct StreamStatistics {
  std::uint64_t given = 0;
  std::uint64_t skipped = 0;   ///< came and were overtaken by newer ones before they were asked for
  std::uint64_t timedOut = 0;  ///< requests whose time was over before a frame came
  std::int64_t ageMedianUs = 0;  ///< of frames when they were given; 0 before the first
  std::int64_t age99Us = 0;      ///< 99 of 100 were no older
  std::int64_t newestAgeUs =
      -1;  ///< of the camera's newest frame (the oldest of several); -1: none
};

/// A stream of the frames of one camera, in one format. Each frame is given at most once, always
/// the newest one, and none from before the stream was opened; at most as often as its rate says.
/// Destroying it closes it, also in a callback of its own.
///
/// Thread-safe. Concurrent waits get a frame each. A frame that was given keeps a buffer of the
/// device until it is given back, and a stream may keep FrameSubscription::kKeptFrames.
class OX_API FrameStream {
 public:
  virtual ~FrameStream() = default;

  /// The id of its subscriber at the device.
  virtual const std::string& id() const = 0;
  /// With the camera that was meant.
  virtual const FrameFormat& format() const = 0;
  /// Whether somebody has unsubscribed its subscriber, or the device or the service has ended.
  virtual bool isOver() const = 0;

  /// The next frame; empty when none came in that time, and when the stream is over. Waits without
  /// taking processor time, at most 60 s, and allocates nothing. raw: as the camera has it, at the
  /// camera's own size.
  virtual Frame waitForFrame(std::chrono::microseconds pTimeout) = 0;
  virtual Frame waitForRawFrame(std::chrono::microseconds pTimeout) = 0;

  /// Calls pCallback with each frame on a thread of the broker, one call at a time; those that come
  /// during a call are skipped but for the newest. What it throws is logged. Replaces an earlier
  /// callback; an empty one only ends it. When this has returned, and after the stream's end, the
  /// earlier one is not called any more: a call that is under way is waited for, unless this is
  /// called in it.
  virtual void onFrame(std::function<void(Frame)> pCallback) = 0;

  virtual StreamStatistics statistics() const = 0;
  /// The number of the frame that was given last; 0 before the first.
  virtual std::uint64_t frameNumber() const = 0;
};

/// The service OXVideoStream, as a module of the same process calls it: dynamic_cast<
/// OX::IVideoStream*>(broker->getModule("OXVideoStream").get()). Thread-safe.
class OX_API IVideoStream {
 public:
  virtual ~IVideoStream() = default;

  /// Opens a stream and subscribes it at the device. A negative camera is the one that is active
  /// now. pFps is 0 for each frame as it comes, with 30 a second asked of the camera, or
  /// 1 to 255 for at most so many, with at least 5 asked of it. Throws OXError as subscribeCamera()
  /// does, and when there is no device any more.
  virtual std::unique_ptr<FrameStream> open(const std::string& pName, const FrameFormat& pFormat,
                                            int pFps) = 0;
};

}  // namespace OX
