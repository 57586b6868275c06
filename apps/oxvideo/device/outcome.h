/// Says once what a camera does otherwise than a verb asked for. Silence means that all came as
/// asked.
#pragma once

#include <string>
#include <vector>

#include "device/session.h"
#include "terminal/output.h"

namespace OX::cli {

struct RateWish {
  int fps = 0;         ///< 0: none was given
  bool force = false;  ///< --force-fps
};

/// Asks for the rate once more with --force-fps, after the subscription, which lowers it for the
/// largest size. Says on pErr when another one came. Does nothing without a wish.
void settleRate(OXSession& pSession, const std::string& pSubscriber,
                const std::vector<StreamRequest>& pStreams, const RateWish& pWish, OXOutput& pErr);

/// Says on pErr when an image has another size or colour space than was asked for.
void noteFormat(const StreamRequest& pAsked, const CameraImage& pImage, OXOutput& pErr);

}  // namespace OX::cli
