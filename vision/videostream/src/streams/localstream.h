/// A stream of this process.
#pragma once

#include <boost/shared_ptr.hpp>
#include <memory>

#include <oxframework/oxthreadsafety.h>
#include <oxvision/ivideostream.h>
#include "streams.h"

namespace OX {

class FrameCallback;

/// Waits on its caller's thread, and takes frames there. A callback is a request that is made again
/// after each frame.
class LocalStream final : public FrameStream {
 public:
  LocalStream(boost::shared_ptr<Streams> pStreams, StreamPtr pStream);
  ~LocalStream() override;

  const std::string& id() const override { return fStream->id(); }
  const FrameFormat& format() const override { return fStream->formats().front(); }
  bool isOver() const override { return fStream->hasEnded(); }
  Frame waitForFrame(std::chrono::microseconds pTimeout) override;
  Frame waitForRawFrame(std::chrono::microseconds pTimeout) override;
  void onFrame(std::function<void(Frame)> pCallback) override;
  StreamStatistics statistics() const override { return fStream->statistics(); }
  std::uint64_t frameNumber() const override { return fStream->frameNumber(0); }

 private:
  Frame xWait(Stream::Pixels pPixels, std::chrono::microseconds pTimeout);

  const boost::shared_ptr<Streams> fStreams;
  const StreamPtr fStream;
  detail::Mutex fGuard;
  boost::shared_ptr<FrameCallback> fCallback OX_GUARDED_BY(fGuard);
};

}  // namespace OX
