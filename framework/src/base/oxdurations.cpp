// Logarithmic classes: the position of the highest bit, and the three bits below it.
#include <oxframework/oxdurations.h>

#include <algorithm>
#include <bit>
#include <cmath>

namespace OX {
namespace {

constexpr std::uint64_t kParts = 8;
constexpr int kPartBits = 3;

std::size_t classOf(std::uint64_t pNanoseconds, std::size_t pClasses) {
  // Below 8 ns each has a class of its own.
  if (pNanoseconds < kParts) return static_cast<std::size_t>(pNanoseconds);
  const int highest = std::bit_width(pNanoseconds) - 1;
  const std::uint64_t part = pNanoseconds >> (highest - kPartBits) & (kParts - 1);
  const auto power = static_cast<std::uint64_t>(highest - kPartBits + 1);
  return std::min<std::size_t>(power * kParts + part, pClasses - 1);
}

/// The middle of a class.
std::uint64_t middleOf(std::size_t pClass) {
  const std::uint64_t power = pClass / kParts;
  const std::uint64_t part = pClass % kParts;
  if (power == 0) return part;
  return ((2 * (kParts + part) + 1) << (power - 1)) / 2;
}

}  // namespace

void OXDurations::add(std::chrono::nanoseconds pDuration) noexcept {
  const auto length = static_cast<std::uint64_t>(std::max<std::int64_t>(pDuration.count(), 0));
  fClasses[classOf(length, fClasses.size())].fetch_add(1, std::memory_order_relaxed);
}

std::uint64_t OXDurations::count() const noexcept {
  std::uint64_t sum = 0;
  for (const auto& one : fClasses) sum += one.load(std::memory_order_relaxed);
  return sum;
}

std::chrono::nanoseconds OXDurations::percentile(double pShare) const noexcept {
  const std::uint64_t all = count();
  if (all == 0) return std::chrono::nanoseconds(0);
  const double wanted = std::ceil(std::clamp(pShare, 0.0, 1.0) * static_cast<double>(all));
  std::uint64_t left = std::max<std::uint64_t>(static_cast<std::uint64_t>(wanted), 1);
  for (std::size_t i = 0; i < fClasses.size(); ++i) {
    const std::uint64_t here = fClasses[i].load(std::memory_order_relaxed);
    if (here >= left) return std::chrono::nanoseconds(middleOf(i));
    left -= here;
  }
  return std::chrono::nanoseconds(middleOf(fClasses.size() - 1));
}

}  // namespace OX
