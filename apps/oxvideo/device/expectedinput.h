/// The size and frame rate at which a simulator camera expects frames.
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
/// Throws OXFailure for any other reply and for a size that cameras do not have.
ExpectedInput parseExpectedInput(const OXValue& pReply);

}  // namespace OX::cli
