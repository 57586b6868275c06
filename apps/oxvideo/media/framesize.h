/// The sides of a frame in pixels.
#pragma once

namespace OX::cli {

struct FrameSize {
  int width = 0;
  int height = 0;
  bool operator==(const FrameSize&) const = default;
};

}  // namespace OX::cli
