// A camera may answer with a size that can't be pushed, such as [-1, -1].
#include "device/expectedinput.h"

#include <fmt/format.h>

#include <oxframework/oxdefinitions.h>
#include "device/jsonvalues.h"
#include "terminal/exitstatus.h"

namespace OX::cli {

ExpectedInput parseExpectedInput(const OXValue& pReply) {
  const auto isPair = [](const OXValue& pValue) {
    return pValue.isArray() && pValue.getSize() == 2;
  };
  if (isPair(pReply) && isPair(pReply[0]) && pReply[0][0].isInt() && pReply[0][1].isInt() &&
      pReply[1].isInt()) {
    const FrameSize size{pReply[0][0].toInt(), pReply[0][1].toInt()};
    const int fps = pReply[1].toInt();
    if (getResolutionFromSize(size.width, size.height) >= 0 && fps >= 1 && fps <= 255)
      return {size, static_cast<double>(fps)};
  }
  throw OXFailure(fmt::format(
      "the camera expects {}, which can't be fed; choose what to push with --size and --fps",
      toJson(pReply)));
}

}  // namespace OX::cli
