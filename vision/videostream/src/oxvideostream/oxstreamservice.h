/// The service OXVideoStream: frames as they come, for other processes and for modules.
#pragma once

#include <boost/shared_ptr.hpp>
#include <memory>
#include <string>
#include <vector>

#include <oxframework/oxcompletion.h>
#include <oxframework/oxmodule.h>
#include <oxframework/oxvalue.h>
#include <oxvision/ivideostream.h>
#include "streams/streams.h"

namespace OX {

/// A module beside the device, made after it and ended before it as a rule; it survives its end.
/// The broker owns both. A stream belongs to the connection that opened it, and ends with it.
/// Thread-safe. OX::OXVideoStream is a record of the format of recordings.
class OXStreamService : public OXModule, public IVideoStream {
 public:
  /// Throws OXError when the broker has no video device that delivers frames.
  explicit OXStreamService(boost::shared_ptr<OXBroker> pBroker);
  ~OXStreamService() override;
  void init() override;

  std::unique_ptr<FrameStream> open(const std::string& pName, const FrameFormat& pFormat,
                                    int pFps) override;

  // Published; described in published.cpp.
  std::string open(const std::string& pName, const int& pCamera, const int& pResolution,
                   const int& pColorSpace, const int& pFps);
  std::string openStreams(const std::string& pName, const OXValue& pCameras,
                          const OXValue& pResolutions, const OXValue& pColorSpaces,
                          const int& pFps);
  void openShared(const std::string& pName, const int& pCamera, const int& pResolution,
                  const int& pColorSpace, const int& pFps, const int& pSlots,
                  OXCompletion pCompletion);
  void openStreamsShared(const std::string& pName, const OXValue& pCameras,
                         const OXValue& pResolutions, const OXValue& pColorSpaces, const int& pFps,
                         const int& pSlots, OXCompletion pCompletion);
  void next(const std::string& pId, const int& pTimeoutMs, OXCompletion pCompletion);
  void nextRaw(const std::string& pId, const int& pTimeoutMs, OXCompletion pCompletion);
  void nextShared(const std::string& pId, const int& pTimeoutMs, OXCompletion pCompletion);
  void nextRawShared(const std::string& pId, const int& pTimeoutMs, OXCompletion pCompletion);
  void release(const std::string& pId, const int& pSlot, const int& pGeneration);
  OXValue frameNumber(const std::string& pId);
  OXValue statistics(const std::string& pId);
  void close(const std::string& pId);
  OXValue timings();

 private:
  friend class StreamProbe;
  void xPublish();
  void xDeclareOwnership();
  Streams::Wish xWish(const char* pMethod, const std::string& pName,
                      std::vector<FrameFormat> pFormats, bool pIsMulti, int pFps) const;
  void xOpenShared(Streams::Wish pWish, int pSlots, const OXCompletion& pCompletion);
  void xNext(const char* pMethod, const std::string& pId, int pTimeoutMs, Stream::Pixels pPixels,
             bool pIsShared, OXCompletion pCompletion);
  StreamPtr xFind(const char* pMethod, const std::string& pId) const;

  const boost::shared_ptr<Streams> fStreams;
};

}  // namespace OX
