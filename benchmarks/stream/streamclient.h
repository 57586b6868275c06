/// A client of OXVideoStream in this process, with one stream of camera 0.
#pragma once

#include <boost/shared_ptr.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <oxframework/oxremotebroker.h>
#include <oxframework/oxvalue.h>

namespace OX::benchmarks {

/// The stream ends with its connection. One thread only; throws OXError and std::runtime_error.
class StreamClient {
 public:
  enum class Way { kSocket, kShared };

  /// Opens a stream of every frame as it comes. pSlots as openShared() takes it.
  StreamClient(const boost::shared_ptr<OXRemoteBroker>& pBroker, const std::string& pName, Way pWay,
               int pResolution, int pColorSpace, int pSlots = 0);
  ~StreamClient();
  StreamClient(const StreamClient&) = delete;
  StreamClient& operator=(const StreamClient&) = delete;

  /// Waits for the next frame; false when none came in that time. The image is there until
  /// release(), which has to come before the next one.
  bool next(std::chrono::milliseconds pTimeout);
  void release();

  const void* pixels() const { return fPixels; }
  std::size_t bytes() const { return fBytes; }
  /// When the frame was pushed, by the system's clock.
  std::int64_t stampUs() const { return fStampUs; }

 private:
  class Segment;

  const boost::shared_ptr<OXRemoteBroker> fBroker;
  std::string fId;
  std::unique_ptr<Segment> fSegment;  ///< null by socket
  OXValue fImage;
  const void* fPixels = nullptr;
  std::size_t fBytes = 0;
  std::int64_t fStampUs = 0;
};

/// Microseconds since 1970, as stamps are.
std::int64_t wallClockUs();

}  // namespace OX::benchmarks
