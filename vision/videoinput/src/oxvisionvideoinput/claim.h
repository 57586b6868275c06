/// What a request needs of the device's tables, looked up once.
#pragma once

#include <boost/shared_ptr.hpp>

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

}  // namespace OX
