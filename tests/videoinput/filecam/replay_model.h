/// The replay as its rules say it, image by image: what the file camera must serve, whatever
/// shortcuts it takes. Files are undamaged here, and every subscriber gives its image back at once.
#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace OX::test {

class ReplayModel {
 public:
  using Stamps = std::vector<std::int64_t>;

  void setVideo(const Stamps& pStamps, std::int64_t pFirst, std::int64_t pLast, bool pLoop,
                int pMode) {
    stop();
    fStamps = pStamps;
    fFirst = pFirst;
    fLast = pLast;
    fLoop = pLoop;
    fMode = pMode;
    fCurrentImage = pFirst;
    fIsOpen = false;
  }

  void stop() {
    if (fRuns) fIsOpen = false;
    fRuns = false;
  }

  /// Whether the grabber runs then.
  bool start(std::int64_t pNow) {
    if (!fRuns) fRuns = xOpen(pNow);
    return fRuns;
  }

  void next() { fServed = false; }

  void speed(double pImagesPerSecond) {
    fPeriod = pImagesPerSecond == 0 ? kForever
                                    : static_cast<std::int64_t>(1.0 / pImagesPerSecond * 1000000.0);
  }

  void previous() {
    const std::int64_t stamp = xCurrent().stamp;
    xMove();
    if (fCurrentImage > fFirst) {
      xRead(xCurrent(), fReader - 1);
      xRead(xCurrent(), fReader - 1);
      xCurrent().stamp = stamp + 1;
      xRead(xAhead(), fReader + 1);
      fCurrentImage -= 2;
      xAhead().stamp = stamp + 2;
    } else if (fLoop) {
      fCurrentImage = fLast - 1;
      xRead(xCurrent(), fCurrentImage);
      xCurrent().stamp = stamp + 1;
      xRead(xAhead(), fReader + 1);
      ++fCurrentImage;
      xAhead().stamp = stamp + 2;
    }
  }

  /// "(image,stamp)".
  std::string request(std::int64_t pNow) {
    if (fMode == 1) {
      while (xAhead().stamp - fFirstStamp < pNow - fStart) {
        xMove();
        // Where nothing can be read, no stamp catches up.
        if (!xReadAheadFollowing(pNow)) break;
      }
    } else {
      if (fPeriod <= pNow - fStart) fServed = false;
      if (!fServed) {
        fStart = pNow;
        xMove();
        xReadAheadStepping();
        fServed = true;
      }
    }
    return "(" + std::to_string(xCurrent().image) + "," + std::to_string(xCurrent().stamp) + ")";
  }

 private:
  static constexpr std::int64_t kForever = std::numeric_limits<std::int64_t>::max();

  struct Slot {
    std::int64_t image = 0;
    std::int64_t stamp = 0;
  };

  Slot& xCurrent() { return fSlots[fCurrent]; }
  Slot& xAhead() { return fSlots[fAhead]; }
  std::int64_t xImages() const { return static_cast<std::int64_t>(fStamps.size()); }

  void xMove() {
    fCurrent = fAhead;
    fAhead = (fAhead + 1) % fSlots.size();
  }

  /// An image that is not there leaves slot and reader as they are.
  bool xRead(Slot& pSlot, std::int64_t pIndex) {
    if (!fIsOpen || pIndex < 0 || pIndex >= xImages()) return false;
    pSlot = {pIndex, fStamps[static_cast<std::size_t>(pIndex)]};
    fReader = pIndex;
    return true;
  }

  bool xOpen(std::int64_t pNow) {
    fIsOpen = true;
    fReader = -1;
    fDuration = 0;
    fOffset = 0;
    fServed = false;
    fPeriod = kForever;
    if (fFirst >= xImages()) return false;
    if (fLast >= xImages()) fLast = xImages() - 1;
    if (fCurrentImage < 0) fCurrentImage = fLoop ? fFirst : 0;
    if (fCurrentImage >= xImages()) fCurrentImage = fLoop ? fFirst : fLast;
    bool read = false;
    for (Slot& slot : fSlots) read = xRead(slot, fCurrentImage);
    ++fCurrentImage;
    if (fCurrentImage > fLast) {
      fCurrentImage = fLoop ? fFirst : fLast;
      xRead(xAhead(), fCurrentImage);
    } else {
      xRead(xAhead(), fReader + 1);
    }
    ++fCurrentImage;
    fFirstStamp = fSlots[0].stamp;
    fStart = pNow;
    return read;
  }

  void xMeasure() {
    if (fDuration == 0 && fIsOpen)
      fDuration = (xImages() + 1) * (xCurrent().stamp - fFirstStamp) / xImages();
  }

  bool xReadAheadFollowing(std::int64_t pNow) {
    const std::int64_t present = pNow + fFirstStamp + 1 - fStart;
    bool read = false;
    if (fCurrentImage > fLast && fLoop) {
      xMeasure();
      if (fDuration > 0) fOffset += fDuration;
      fCurrentImage = fFirst;
      read = xRead(xAhead(), fFirst);
      // A loop without length would be caught up with for ever.
      if (read) xAhead().stamp = fDuration > 0 ? xAhead().stamp + fOffset : present;
    } else if (fCurrentImage > fLast) {
      fCurrentImage = fLast;
      read = xRead(xAhead(), fLast);
      if (read) xAhead().stamp = present;
    } else {
      read = xRead(xAhead(), fReader + 1);
      if (read) xAhead().stamp += fOffset;
    }
    ++fCurrentImage;
    return read;
  }

  void xReadAheadStepping() {
    if (fCurrentImage > fLast && fLoop) {
      xMeasure();
      fOffset += fDuration;
      fCurrentImage = fFirst;
      xRead(xAhead(), fFirst);
      xAhead().stamp += fOffset;
    } else if (fCurrentImage > fLast) {
      fCurrentImage = fLast;
      xRead(xAhead(), fLast);
      fOffset += 1;
      xAhead().stamp += fOffset;
    } else {
      xRead(xAhead(), fReader + 1);
      if (xCurrent().stamp < fOffset + xAhead().stamp)
        xAhead().stamp += fOffset;
      else
        xAhead().stamp = xCurrent().stamp + 1;
    }
    ++fCurrentImage;
  }

  Stamps fStamps;
  bool fIsOpen = false;
  bool fRuns = false;
  std::int64_t fReader = -1;
  std::int64_t fCurrentImage = 0;
  std::int64_t fFirst = 0;
  std::int64_t fLast = 0;
  bool fLoop = false;
  int fMode = 0;
  std::array<Slot, 5> fSlots;
  std::size_t fCurrent = 0;
  std::size_t fAhead = 1;
  std::int64_t fStart = 0;
  std::int64_t fFirstStamp = 0;
  std::int64_t fDuration = 0;
  std::int64_t fOffset = 0;
  std::int64_t fPeriod = kForever;
  bool fServed = true;
};

}  // namespace OX::test
