/// Images as the device sends them.
#pragma once

#include <optional>
#include <vector>

#include <oxframework/oxvalue.h>
#include "media/cameraimage.h"

namespace OX::cli {

/// The reply of getImageRemote and getDirectRawImageRemote. Nothing for an invalid value: the
/// camera had no frame. Throws OXFailure when what came is no image: every size is checked.
std::optional<CameraImage> parseImageReply(const OXValue& pReply);

/// The reply of getImagesRemote: the images in the order of the cameras, nothing in place of one
/// that the camera didn't have. Empty for an invalid value. Throws OXFailure as above.
std::vector<std::optional<CameraImage>> parseImagesReply(const OXValue& pReply);

}  // namespace OX::cli
