// Out of line, so that the record needs no definition of the recording that it owns.
#include "records.h"

#include <oxframework/oxvideo.h>

namespace OX {

VisionModuleInfo::VisionModuleInfo() = default;
VisionModuleInfo::~VisionModuleInfo() = default;

}  // namespace OX
