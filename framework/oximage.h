/// One image: format, time stamp, camera, angles and pixels.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include "oxapi.h"
#include "oxvalue.h"

namespace OX {

/// A plain record whose fields are read and written directly.
///
/// Pixels are rows from top to bottom without gaps, fWidth * fHeight * fNbLayers bytes.
/// An image that owns its pixels allocates them once, zero-filled and committed page by page as
/// they are first touched, and frees them in its destructor. A change of format only writes the
/// fields, so an image is made for the largest format that it will ever hold; fCapacityBytes is
/// the number of bytes at fData.
/// Not thread-safe: the owner of the buffer guards it.
class OX_API OXImage {
 public:
  /// By resolution or by size in pixels; angles in radians. With pDataAreExternal nothing is
  /// allocated, and fData is null until setExternalData(). An unknown resolution or a negative size
  /// makes an empty image of size -1 x -1. Throws std::bad_alloc.
  OXImage(int pResolution, int pColorSpace, bool pDataAreExternal, float pLeftAngle,
          float pTopAngle, float pRightAngle, float pBottomAngle);
  OXImage(int pWidth, int pHeight, int pColorSpace, bool pDataAreExternal, float pLeftAngle,
          float pTopAngle, float pRightAngle, float pBottomAngle);
  ~OXImage();
  OXImage(const OXImage&) = delete;
  OXImage& operator=(const OXImage&) = delete;

  /// Selects the constructor that makes a view: another image's fields and its pixels, which stay
  /// the other's and must outlive the view.
  struct ViewTag {};
  OXImage(const OXImage& pOther, ViewTag);

  /// Writes width and height (-1 for an unknown resolution); allocates nothing.
  void setResolution(int pResolution);
  /// Writes colour space and layers; allocates nothing.
  void setColorSpace(int pColorSpace);
  /// Points an image with external data at pCapacityBytes of pixels. They stay the caller's.
  void setExternalData(unsigned char* pData, std::size_t pCapacityBytes);

  /// fWidth * fHeight * fNbLayers in bytes, 0 for an empty image, at most fCapacityBytes.
  std::size_t getSizeBytes() const;

  /// The array of 12 elements that remote callers receive, with a copy of the pixels:
  /// width, height, layers, colour space, time stamp (highest 32 bits, lowest 32 bits), binary of
  /// getSizeBytes() bytes, camera, left, top, right and bottom angle.
  OXValue toOXValue() const;

  int fWidth = -1;    ///< pixels
  int fHeight = -1;   ///< pixels
  int fNbLayers = 3;  ///< bytes per pixel
  int fColorSpace = 0;
  std::int64_t fTimeStamp = 0;     ///< microseconds since 1970; 0 was never set
  unsigned char* fData = nullptr;  ///< the pixels; null when there are none
  std::int8_t fCameraId = 0;       ///< the camera that took the frame
  float fLeftAngle = 0;
  float fTopAngle = 0;
  float fRightAngle = 0;
  float fBottomAngle = 0;
  std::size_t fCapacityBytes = 0;  ///< bytes allocated at fData

 private:
  void xAllocate();

  bool fDataAreExternal;
};

/// The image's time stamp in seconds and the remaining microseconds, both truncated towards 0.
OX_API std::pair<std::int64_t, std::int64_t> getTimeStamp(const OXImage& pImage);

}  // namespace OX
