/// Counts what comes to a camera: pushes, or steps of a replay.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "status/devicestatus.h"

namespace OX {

/// Who makes the call that runs on this thread: the client's name, else its address, "local" for a
/// call from the broker's process. Allocates for remote calls only.
std::string describeCaller();

/// Plain counters under a lock of the owner. Counting allocates nothing and never throws.
class FrameFeed {
 public:
  /// A frame came at pNowUs, by the device's clock. pFeeder is taken over.
  void add(std::int64_t pNowUs, std::int64_t pStampUs, int pWidth, int pHeight,
           std::string& pFeeder) noexcept;
  void drop(std::uint64_t pFrames = 1) { fDropped += pFrames; }

  bool isEmpty() const { return fCount == 0; }
  std::int64_t stampUs() const { return fStampUs; }
  FeedStatus status(std::int64_t pNowUs) const;

 private:
  /// Enough for two seconds of what cameras deliver at most.
  static constexpr std::size_t kArrivals = 64;

  std::array<std::int64_t, kArrivals> fArrivalsUs{};
  std::uint64_t fCount = 0;
  std::uint64_t fDropped = 0;
  std::int64_t fStampUs = 0;
  int fWidth = 0;
  int fHeight = 0;
  std::string fFeeder;
};

}  // namespace OX
