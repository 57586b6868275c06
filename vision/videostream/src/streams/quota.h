/// What streams may take of the broker.
#pragma once

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <map>

#include <oxframework/oxthreadsafety.h>

namespace OX {

/// Counts the streams and the shared memory of connections. Thread-safe.
class Quota : public boost::enable_shared_from_this<Quota> {
 public:
  struct Limits {
    int streams = 64;    ///< of a connection
    int sharedMiB = 64;  ///< of a connection, unless it has one stream only
    int sharedMiBInAll = 512;
  };
  explicit Quota(const Limits& pLimits) : fLimits(pLimits) {}

  /// What one stream takes, until this is destroyed.
  class Share {
   public:
    Share() = default;
    Share(boost::shared_ptr<Quota> pQuota, int pConnection, std::int64_t pBytes);
    Share(Share&& pOther) noexcept = default;
    Share& operator=(Share&& pOther) noexcept;
    ~Share();

   private:
    boost::shared_ptr<Quota> fQuota;
    int fConnection = 0;
    std::int64_t fBytes = 0;
  };

  /// Of a connection; 0 for this process, which has no limit of streams. Throws OXError that says
  /// which limit is reached.
  Share take(const char* pMethod, int pConnection, std::int64_t pBytes);

 private:
  struct Use {
    int streams = 0;
    std::int64_t bytes = 0;
  };

  void xCheck(const char* pMethod, int pConnection, std::int64_t pBytes) OX_REQUIRES(fGuard);
  void xReturn(int pConnection, std::int64_t pBytes);

  const Limits fLimits;
  detail::Mutex fGuard;
  std::map<int, Use> fUses OX_GUARDED_BY(fGuard);
  std::int64_t fBytes OX_GUARDED_BY(fGuard) = 0;
};

}  // namespace OX
