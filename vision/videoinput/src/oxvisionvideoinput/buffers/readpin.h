/// Keeps a lent image readable while its pixels are copied outside the lock.
#pragma once

#include "oxvisionvideoinput.h"

namespace OX {

/// A read count of its own on a buffer, beside the subscriber's: whatever others do meanwhile to
/// the subscriber, to its hold or to the pool, the pixels stay. Made with fVisionModulesLock held
/// for writing; the destructor takes the lock by itself.
class OXVisionVideoInput::ReadPin {
 public:
  ReadPin(OXVisionVideoInput& pDevice, int pCamera, boost::shared_ptr<OXVisionBuffer> pBuffer)
      : fDevice(pDevice), fCamera(pCamera), fBuffer(std::move(pBuffer)) {
    ++fBuffer->fReadLockCount;
  }
  ~ReadPin() {
    const OXCriticalSectionWrite lock(fDevice.fVisionModulesLock);
    fDevice.xDropReader(fCamera, *fBuffer);
  }
  ReadPin(const ReadPin&) = delete;
  ReadPin& operator=(const ReadPin&) = delete;

 private:
  OXVisionVideoInput& fDevice;
  int fCamera;
  boost::shared_ptr<OXVisionBuffer> fBuffer;
};

}  // namespace OX
