/// A frame of a camera, lent.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <optional>
#include <utility>

#include <oxframework/oxapi.h>
#include <oxframework/oximage.h>

namespace OX {

/// Pixels in place, without a copy. Movable; gives back what it holds when it is destroyed, by any
/// thread, or when another frame is moved to it. The image may be read until then, but not changed.
/// It may outlive the stream that it came from. One thread at a time.
class OX_API Frame {
 public:
  /// Takes buffers back.
  class OX_API Lender {
   public:
    virtual ~Lender() = default;
    virtual void takeBack(int pCamera, const boost::shared_ptr<void>& pBuffer) noexcept = 0;
  };
  /// What is lent, and by whom; null for pixels that nobody takes back.
  struct Loan {
    boost::shared_ptr<Lender> lender;
    int camera = 0;
    boost::shared_ptr<void> buffer;
  };

  Frame() = default;
  /// Refers to the pixels of pImage. Allocates nothing.
  Frame(const OXImage& pImage, std::uint64_t pNumber, std::int64_t pArrivedUs, Loan pLoan)
      : fNumber(pNumber), fArrivedUs(pArrivedUs), fLoan(std::move(pLoan)) {
    xRefer(pImage);
  }
  Frame(Frame&& pOther) noexcept { xMoveFrom(pOther); }
  Frame& operator=(Frame&& pOther) noexcept {
    if (this == &pOther) return *this;
    giveBack();
    xMoveFrom(pOther);
    return *this;
  }
  Frame(const Frame&) = delete;
  Frame& operator=(const Frame&) = delete;
  ~Frame() { giveBack(); }

  /// Whether there is a frame: an empty one has no image.
  explicit operator bool() const { return fImage.has_value(); }
  /// Size, colour space, time stamp, camera and pixels. Not of an empty frame.
  const OXImage& image() const { return *fImage; }
  /// Rises from frame to frame of a camera, by more than 1 where frames were passed over.
  std::uint64_t number() const { return fNumber; }
  /// When the frame was pushed, or the replay stepped to it, in microseconds since 1970 by the
  /// device's clock. The time stamps of a replay are those of its recording.
  std::int64_t arrivedUs() const { return fArrivedUs; }

  /// Before the destruction. The frame is empty then.
  void giveBack() noexcept {
    fImage.reset();
    if (fLoan.lender && fLoan.buffer) fLoan.lender->takeBack(fLoan.camera, fLoan.buffer);
    fLoan = {};
  }

 private:
  void xRefer(const OXImage& pImage) { fImage.emplace(pImage, OXImage::ViewTag()); }
  void xMoveFrom(Frame& pOther) noexcept {
    if (pOther.fImage) xRefer(*pOther.fImage);
    pOther.fImage.reset();
    fNumber = pOther.fNumber;
    fArrivedUs = pOther.fArrivedUs;
    fLoan = std::exchange(pOther.fLoan, {});
  }

  std::optional<OXImage> fImage;  ///< a view
  std::uint64_t fNumber = 0;
  std::int64_t fArrivedUs = 0;
  Loan fLoan;
};

}  // namespace OX
