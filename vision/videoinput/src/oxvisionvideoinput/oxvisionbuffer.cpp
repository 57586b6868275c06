// Buffers are created in the largest format there is and then set to the one asked for: storage is
// allocated once, when a failure can still be reported, and no later change of format can fail.
#include "oxvisionbuffer.h"

#include <new>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxlog.h>

namespace OX {

OXVisionBuffer::OXVisionBuffer(int pResolution, int pColorSpace, bool pDataAreExternal) {
  try {
    fImage = std::make_unique<OXImage>(k4VGA, kYUV, pDataAreExternal, 0.f, 0.f, 0.f, 0.f);
  } catch (const std::bad_alloc&) {
    ki::log::log(ki::log::kError, "vision.oxvisionbuffer",
                 "Image buffer not created : fImage = NULL", "", "OXVisionCameraBuffer()", 0);
    throw;
  }
  fImage->setResolution(pResolution);
  fImage->setColorSpace(pColorSpace);
}

OXVisionBuffer::~OXVisionBuffer() = default;

}  // namespace OX
