/// The open streams.
#pragma once

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <oxframework/oxthreadsafety.h>
#include <oxvision/iframesource.h>
#include "delivery.h"
#include "durations.h"
#include "quota.h"
#include "stream.h"

namespace OX {

class OXBroker;

/// Streams by their ids, with their owners and limits. A stream is here until its subscriber at the
/// device has ended, by whichever way. Thread-safe.
class Streams : public boost::enable_shared_from_this<Streams> {
 public:
  static boost::shared_ptr<Streams> create(const boost::shared_ptr<OXBroker>& pBroker,
                                           boost::weak_ptr<IFrameSource> pSource);
  /// begin() connects it to the device, end() closes all streams.
  void begin();
  void end();

  struct Wish {
    const char* method;  ///< for errors
    std::string name;
    std::vector<FrameFormat> formats;
    bool isMulti = false;
    int fps = 0;
    int slots = 0;                         ///< of shared memory; 0: none
    int connection = StreamOwner::kLocal;  ///< whose limits count
    StreamOwner owner{};
    bool isShared = true;  ///< one task serves it with others of its formats
  };
  /// Throws OXError: of the device, a limit, a rate out of range.
  StreamPtr open(const Wish& pWish);
  /// Throws OXError when there is none that this connection may use.
  StreamPtr find(const char* pMethod, const std::string& pId, int pConnection) const;
  /// Waits up to 10 s for a call of the subscriber; throws OXError after that.
  void close(const char* pMethod, const StreamPtr& pStream);

  std::string idOf(std::uint64_t pAcquisition) const;
  /// As OXOwnership::end.
  bool endAcquired(std::uint64_t pAcquisition);

  Delivery& delivery() { return *fDelivery; }
  const boost::shared_ptr<StreamDurations>& durations() const { return fDurations; }
  boost::shared_ptr<IFrameSource> source() const { return fSource.lock(); }

 private:
  friend class StreamProbe;
  Streams(const OXBroker& pBroker, boost::weak_ptr<IFrameSource> pSource);
  StreamPtr xAdd(const Wish& pWish, Stream::Setup pSetup);
  StreamPtr xFindAcquired(std::uint64_t pAcquisition) const;
  std::vector<StreamPtr> xAll() const;
  bool xEnd(const StreamPtr& pStream, const Delivery::Farewell& pFarewell);
  void xDropEnded();

  const boost::weak_ptr<IFrameSource> fSource;
  const boost::shared_ptr<Quota> fQuota;
  const boost::shared_ptr<StreamDurations> fDurations;
  boost::shared_ptr<Delivery> fDelivery;  ///< set by create()
  bool fHasBegun = false;
  mutable detail::Mutex fGuard;
  std::map<std::string, StreamPtr> fStreams OX_GUARDED_BY(fGuard);
  bool fIsOver OX_GUARDED_BY(fGuard) = false;
};

}  // namespace OX
