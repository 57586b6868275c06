/// Parses the replies of the device that carry images.
#pragma once

#include <optional>
#include <vector>

#include <oxframework/oxvalue.h>
#include "media/cameraimage.h"

namespace OX::cli {

/// The reply of getImageRemote and getDirectRawImageRemote. Empty for an invalid value: the camera
/// had no frame. Throws OXFailure for a malformed reply; every size is checked.
std::optional<CameraImage> parseImageReply(const OXValue& pReply);

/// The reply of getImagesRemote: one entry per camera, in order, empty where the camera had no
/// frame. No entries for an invalid value. Throws OXFailure as above.
std::vector<std::optional<CameraImage>> parseImagesReply(const OXValue& pReply);

}  // namespace OX::cli
