/// One request of a stream for a frame, and its result.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <optional>

#include <oxframework/oximage.h>
#include <oxvision/iframesource.h>
#include "oxvisionbuffer.h"

namespace OX {

struct RealCameraProperties;
struct VisionModuleInfo;

/// What is asked for. Borrowed from the subscription for one call.
struct FrameRequest {
  VisionModuleInfo& subscriber;
  RealCameraProperties& record;  ///< of the camera
  const FrameFormat& format;     ///< of the stream, whatever its subscriber's wish is
  std::uint64_t after;           ///< only a frame with a higher number is new
  FrameSubscription::Pixels pixels;
  FrameTarget target;
};

/// A frame that was found or made.
struct TakenFrame {
  std::optional<OXImage> image;  ///< a view
  FrameMark mark;
  boost::shared_ptr<void> buffer;  ///< counts as lent once more; null: the pixels are in the target
};

}  // namespace OX
