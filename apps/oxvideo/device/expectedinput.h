/// What a camera wants to be fed with.
#pragma once

#include <oxframework/oxvalue.h>
#include "media/framesize.h"

namespace OX::cli {

struct ExpectedInput {
  FrameSize size;
  double fps = 0;
  bool operator==(const ExpectedInput&) const = default;
};

/// The reply of getExpectedImageParameters, [[width, height], frame rate].
/// Throws OXFailure when it is something else or a size that no camera takes.
ExpectedInput parseExpectedInput(const OXValue& pReply);

}  // namespace OX::cli
