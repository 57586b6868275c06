/// What a camera wants to be fed with.
#pragma once

#include <oxframework/oxvalue.h>
#include "device/vocabulary.h"

namespace OX::cli {

struct Expected {
  FrameSize size;
  double fps = 0;
  bool operator==(const Expected&) const = default;
};

/// The reply of getExpectedImageParameters, [[width, height], frame rate].
/// Throws OXFailure when it is something else or a size that no camera takes.
Expected parseExpected(const OXValue& pReply);

}  // namespace OX::cli
