/// One image of a pool, with the counts of its readers and writers.
#pragma once

#include <atomic>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <memory>

#include <oxframework/oximage.h>

namespace OX {

/// Which frame of its camera some pixels are.
struct FrameMark {
  std::uint64_t number = 0;    ///< rises from frame to frame; 0: none that is known
  std::int64_t arrivedUs = 0;  ///< when it came, microseconds since 1970 by the device's clock
};

/// Pools share ownership with the holds on the buffer. Everything but the read count changes with
/// fVisionModulesLock held for writing, or the concrete camera's own lock for its own buffers.
class OXVisionBuffer {
 public:
  /// The image has storage for the largest format there is (none if pDataAreExternal) and the given
  /// format; later formats need no further storage. A failed allocation throws std::bad_alloc after
  /// a record in the log.
  OXVisionBuffer(int pResolution, int pColorSpace, bool pDataAreExternal);
  ~OXVisionBuffer();
  OXVisionBuffer(const OXVisionBuffer&) = delete;
  OXVisionBuffer& operator=(const OXVisionBuffer&) = delete;

  /// Whether the image has exactly this format.
  bool hasFormat(int pWidth, int pHeight, int pColorSpace) const {
    return fImage->fWidth == pWidth && fImage->fHeight == pHeight &&
           fImage->fColorSpace == pColorSpace;
  }

  /// Whether nobody uses it, so that its pixels and its format may be changed.
  bool isFree() const { return fReadLockCount == 0 && fWriteLockCount <= 0; }

  /// Whether only frames that were lent to streams keep it, so that it may leave its pool.
  bool isLentOnly() const {
    return fLentCount > 0 && fReadLockCount == fLentCount && fWriteLockCount <= 0;
  }

  /// Subscribers, replies and searches that hold it for reading. Atomic, since sharing an image and
  /// releasing it need the lock for reading only.
  std::atomic<int> fReadLockCount{0};
  int fWriteLockCount = 0;  ///< writers and searches that hold it for editing
  /// Of the read counts, those of replies and conversions, which read its pixels without the lock.
  int fPinCount = 0;
  /// Of the read counts, those of frames that were lent to streams. Atomic for the same reason.
  std::atomic<int> fLentCount{0};
  /// The number of the conversion, or of the push, that fills it while it is locked for writing, or
  /// that filled it last; 0: none did. From its beginning the image has the time stamp that it will
  /// keep, and fConvertedFrom is the frame that is read.
  std::uint64_t fContent = 0;
  const void* fConvertedFrom = nullptr;
  std::unique_ptr<OXImage> fImage;
  /// The size of the pixels when they were lent. A change of the camera's resolution writes to the
  /// image of a lent raw buffer, too, whose pixels stay what they are.
  int fLentWidth = 0;
  int fLentHeight = 0;
  /// Keeps the camera's frame alive whose pixels this buffer points at; null when it points at
  /// none.
  boost::shared_ptr<void> fRawSource;
  /// The frame that the pixels show or, while they are filled, will show.
  FrameMark fFrame;
  /// Whether it left its pool, or its camera's store, because of frames that streams kept: it is
  /// used again when they are given back.
  bool fIsOutside = false;
};

}  // namespace OX
