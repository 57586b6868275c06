/// The size and frame rate at which a simulator camera expects frames.
#pragma once

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>

#include <oxframework/oxvalue.h>
#include "media/framesize.h"

namespace OX::cli {

struct ExpectedInput {
  FrameSize size;
  double fps = 0;
  bool operator==(const ExpectedInput&) const = default;
};

/// The reply of getExpectedImageParameters, [[width, height], frame rate].
/// Throws OXFailure for any other reply and for a size that cameras do not have.
ExpectedInput parseExpectedInput(const OXValue& pReply);

/// The event that a device raises when what it expects has changed.
constexpr const char* kExpectedImageEvent = "VideoInput/ExpectedImage";

/// The newest value of that event for each camera. Thread-safe: events arrive on the connection's
/// thread.
class OXExpectedInputs {
 public:
  /// Keeps an event's value, [camera, width, height, frame rate]; ignores anything else.
  void put(const OXValue& pEvent);
  /// What has come since the last call, by camera, in the form of getExpectedImageParameters.
  std::map<int, OXValue> take();

  enum class Wake { kTime, kNews, kSignal };
  /// Waits until the moment, the next event, or a signal.
  Wake waitUntil(std::chrono::steady_clock::time_point pMoment);

 private:
  std::mutex fGuard;
  std::condition_variable fCame;
  std::map<int, OXValue> fNews;
};

}  // namespace OX::cli
