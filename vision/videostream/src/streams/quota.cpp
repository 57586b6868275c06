// A share is taken before anything is made, so that two calls at once can't both have the last one.
#include "quota.h"

#include <string>
#include <utility>

#include <oxframework/oxerror.h>

namespace OX {
namespace {

constexpr std::int64_t kMiB = 1 << 20;

/// Rounded to a tenth, as much as a user needs.
std::string mebibytes(std::int64_t pBytes) {
  const std::int64_t tenths = (pBytes * 10 + kMiB / 2) / kMiB;
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " MiB";
}

}  // namespace

Quota::Share::Share(boost::shared_ptr<Quota> pQuota, int pConnection, std::int64_t pBytes)
    : fQuota(std::move(pQuota)), fConnection(pConnection), fBytes(pBytes) {}

Quota::Share& Quota::Share::operator=(Share&& pOther) noexcept {
  fQuota.swap(pOther.fQuota);
  std::swap(fConnection, pOther.fConnection);
  std::swap(fBytes, pOther.fBytes);
  return *this;
}

Quota::Share::~Share() {
  if (fQuota) fQuota->xReturn(fConnection, fBytes);
}

void Quota::xCheck(const char* pMethod, int pConnection, std::int64_t pBytes) {
  const auto found = fUses.find(pConnection);
  const Use use = found == fUses.end() ? Use() : found->second;
  const auto refuse = [&](const std::string& pText) {
    raiseError("OXVideoStream", pMethod, pText);
  };
  if (pConnection != 0 && use.streams >= fLimits.streams)
    refuse("This connection has " + std::to_string(use.streams) +
           " streams already, which is the limit: close one first");
  if (pBytes == 0) return;
  if (use.bytes > 0 && use.bytes + pBytes > fLimits.sharedMiB * kMiB)
    refuse("This client's streams have " + mebibytes(use.bytes) + " of shared memory, and " +
           mebibytes(pBytes) + " more is over the limit of " + std::to_string(fLimits.sharedMiB) +
           " MiB a client: close one first, or ask for fewer slots");
  if (fBytes + pBytes > fLimits.sharedMiBInAll * kMiB)
    refuse("The streams of all clients have " + mebibytes(fBytes) + " of shared memory, and " +
           mebibytes(pBytes) + " more is over the limit of " +
           std::to_string(fLimits.sharedMiBInAll) + " MiB in all");
}

Quota::Share Quota::take(const char* pMethod, int pConnection, std::int64_t pBytes) {
  const detail::MutexLock hold(fGuard);
  xCheck(pMethod, pConnection, pBytes);
  Use& use = fUses[pConnection];
  ++use.streams;
  use.bytes += pBytes;
  fBytes += pBytes;
  return {shared_from_this(), pConnection, pBytes};
}

void Quota::xReturn(int pConnection, std::int64_t pBytes) {
  const detail::MutexLock hold(fGuard);
  const auto found = fUses.find(pConnection);
  found->second.bytes -= pBytes;
  fBytes -= pBytes;
  if (--found->second.streams == 0) fUses.erase(found);
}

}  // namespace OX
