/// One image of a pool with the counts of those who use it.
#pragma once

#include <boost/shared_ptr.hpp>
#include <memory>

#include <oxframework/oximage.h>

namespace OX {

/// The counters are plain integers: whoever changes them holds fVisionModulesLock for writing, or
/// the concrete camera's own lock for the camera's own buffers.
class OXVisionBuffer {
 public:
  /// The image gets storage for the largest format there is (none with external data) and the
  /// format given; later formats need no further storage. A failed allocation throws
  /// std::bad_alloc after a record in the log.
  OXVisionBuffer(int pResolution, int pColorSpace, bool pDataAreExternal);
  ~OXVisionBuffer();
  OXVisionBuffer(const OXVisionBuffer&) = delete;
  OXVisionBuffer& operator=(const OXVisionBuffer&) = delete;

  /// Whether the image has exactly this format.
  bool hasFormat(int pWidth, int pHeight, int pColorSpace) const {
    return fImage->fWidth == pWidth && fImage->fHeight == pHeight &&
           fImage->fColorSpace == pColorSpace;
  }

  /// Nobody uses it: it may be given new pixels or another format.
  bool isFree() const { return fReadLockCount == 0 && fWriteLockCount <= 0; }

  int fReadLockCount = 0;   ///< subscribers and searches that hold the buffer for reading
  int fWriteLockCount = 0;  ///< writers and searches that hold it for editing
  std::unique_ptr<OXImage> fImage;
  /// Keeps the camera's own frame alive whose pixels this buffer points at; null when it points at
  /// none.
  boost::shared_ptr<void> fRawSource;
};

}  // namespace OX
