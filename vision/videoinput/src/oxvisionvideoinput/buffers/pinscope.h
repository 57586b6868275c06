/// A read count that keeps a buffer's pixels while they are read without the lock.
#pragma once

#include "oxvisionvideoinput.h"

namespace OX {

/// Takes over a read count that a search has raised, and drops it at the end of the scope.
/// fVisionModulesLock is held for writing at both ends.
class OXVisionVideoInput::PinScope {
 public:
  PinScope(OXVisionVideoInput& pDevice, int pCamera, const BufferPtr& pBuffer)
      OX_REQUIRES(pDevice.fVisionModulesLock);
  ~PinScope();
  PinScope(const PinScope&) = delete;
  PinScope& operator=(const PinScope&) = delete;

 private:
  OXVisionVideoInput& fDevice;
  int fCamera;
  BufferPtr fBuffer;
};

}  // namespace OX
