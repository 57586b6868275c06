/// What a request needs of the device's tables, looked up once per request.
#pragma once

#include <boost/shared_ptr.hpp>
#include <optional>

#include "camerarecord.h"
#include "subscriberrecord.h"

namespace OX {

/// A subscriber and one of the device's cameras. Made by xClaim, which checks the id, the family
/// and the camera's index; passed down in place of the id and the index that it was made from.
/// Borrowed: valid while the fVisionModulesLock under which it was made is held, and across a pause
/// of it during the subscriber's turn.
struct Claim {
  const boost::shared_ptr<VisionModuleInfo>& subscriber;
  int index;                        ///< the camera's
  RealCameraProperties& camera;     ///< what the camera runs at, and its buffers
  RequestedCameraProperties& wish;  ///< what the subscriber asks of it, and holds on it
};

/// The result of a look-up by id where a missing part is not an error by itself.
struct Lookup {
  bool isKnown = false;        ///< whether there is a subscriber with that id
  int index = -1;              ///< of the camera that was looked for
  std::optional<Claim> claim;  ///< empty for an unknown subscriber or camera
};

}  // namespace OX
