/// What a request needs of the device's tables, looked up once.
#pragma once

#include <boost/shared_ptr.hpp>
#include <optional>

#include "records.h"

namespace OX {

/// A subscriber and one of the device's cameras. Made by xClaim, which checks the id, the family
/// and the camera's index; handed down in place of the name and the index that it was made from.
/// Borrowed: valid while the fVisionModulesLock under which it was made is held.
struct Claim {
  const boost::shared_ptr<VisionModuleInfo>& subscriber;
  int index;                        ///< the camera's
  RealCameraProperties& camera;     ///< what the camera runs at, and its buffers
  RequestedCameraProperties& wish;  ///< what the subscriber asks of it, and holds on it
};

/// What a look-up by name finds where a missing part is no error of its own.
struct Lookup {
  bool isKnown = false;        ///< whether there is a subscriber of that id
  int index = -1;              ///< the camera that was looked for
  std::optional<Claim> claim;  ///< empty for an unknown subscriber or camera
};

}  // namespace OX
