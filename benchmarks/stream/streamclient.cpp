// Written from docs/wire.md, as a user's client would be.
#include "streamclient.h"

#include <sys/mman.h>

#include <stdexcept>

#include <oxframework/oxdescriptor.h>
#include "measured.h"

namespace OX::benchmarks {
namespace {

constexpr char kModule[] = "OXVideoStream";

// Elements of an image.
constexpr int kStamp = 4;
constexpr int kPixels = 6;

}  // namespace

/// The memory that the broker writes images into, mapped for reading.
class StreamClient::Segment {
 public:
  Segment(OXDescriptor pDescriptor, int pBytes)
      : fBytes(static_cast<std::size_t>(pBytes)),
        fMemory(::mmap(nullptr, fBytes, PROT_READ, MAP_SHARED, pDescriptor.number(), 0)) {
    require(fMemory != MAP_FAILED, "no shared memory");
  }
  ~Segment() { ::munmap(fMemory, fBytes); }
  Segment(const Segment&) = delete;
  Segment& operator=(const Segment&) = delete;

  const void* at(int pOffset, int pBytes) const {
    const auto offset = static_cast<std::size_t>(pOffset);
    require(pOffset >= 0 && pBytes >= 0 && offset + static_cast<std::size_t>(pBytes) <= fBytes,
            "an image outside of the segment");
    return static_cast<const char*>(fMemory) + offset;
  }

 private:
  const std::size_t fBytes;
  void* const fMemory;
};

StreamClient::StreamClient(const boost::shared_ptr<OXRemoteBroker>& pBroker,
                           const std::string& pName, Way pWay, int pResolution, int pColorSpace,
                           int pSlots)
    : fBroker(pBroker) {
  if (pWay == Way::kSocket) {
    fId = fBroker->call(kModule, "open", OXValue::array(pName, 0, pResolution, pColorSpace, 0))
              .toString();
    return;
  }
  OXDescriptor descriptor;
  const OXValue opened =
      fBroker->call(kModule, "openShared",
                    OXValue::array(pName, 0, pResolution, pColorSpace, 0, pSlots), descriptor);
  require(descriptor.isOpen(), "no descriptor");
  fId = opened[0].toString();
  fSegment = std::make_unique<Segment>(std::move(descriptor), opened[1].toInt());
}

StreamClient::~StreamClient() = default;

bool StreamClient::next(std::chrono::milliseconds pTimeout) {
  fImage = fBroker->call(kModule, fSegment ? "nextShared" : "next",
                         OXValue::array(fId, static_cast<int>(pTimeout.count())), pTimeout);
  if (!fImage.isValid()) return false;
  fStampUs = (std::int64_t{fImage[kStamp].toInt()} << 32) |
             static_cast<std::uint32_t>(fImage[kStamp + 1].toInt());
  const OXValue& pixels = fImage[kPixels];
  fBytes = static_cast<std::size_t>(fSegment ? pixels[2].toInt() : pixels.getSize());
  fPixels = fSegment ? fSegment->at(pixels[1].toInt(), pixels[2].toInt()) : pixels.GetBinary();
  return true;
}

void StreamClient::release() {
  if (fSegment && fImage.isValid()) {
    const OXValue& pixels = fImage[kPixels];
    fBroker->notify(kModule, "release", OXValue::array(fId, pixels[0].toInt(), pixels[3].toInt()));
  }
  fImage = {};
  fPixels = nullptr;
  fBytes = 0;
}

std::int64_t wallClockUs() {
  return std::chrono::duration_cast<std::chrono::microseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

}  // namespace OX::benchmarks
