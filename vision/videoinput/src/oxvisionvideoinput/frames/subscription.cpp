// The part of a subscription that needs no lock of the device: what a client asks and keeps. A copy
// to foreign memory is made here, after the locks, and reads only what is counted as lent.
#include "frames/subscription.h"

#include <algorithm>
#include <cstring>
#include <exception>

#include <oxframework/oxclock.h>
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>

namespace OX {
namespace {

FrameSubscription::Result refuse(const std::string& pId, const std::string& pText) {
  report::log(ki::log::kError, "take", "take(" + pId + ") : " + pText);
  return FrameSubscription::Result::kFailed;
}

std::size_t bytesOf(const OXImage& pImage) {
  return static_cast<std::size_t>(std::max(pImage.fWidth, 0)) *
         static_cast<std::size_t>(std::max(pImage.fHeight, 0)) *
         static_cast<std::size_t>(std::max(pImage.fNbLayers, 0));
}

}  // namespace

/// A place among the frames that a client keeps, until a frame takes it.
class OXVisionVideoInput::Subscription::Keeping {
 public:
  Keeping(std::atomic<int>& pKept, bool pIsKept) : fKept(pIsKept ? &pKept : nullptr) {
    if (fKept) fIsFull = fKept->fetch_add(1) >= kKeptFrames;
  }
  ~Keeping() {
    if (fKept) --*fKept;
  }
  Keeping(const Keeping&) = delete;
  Keeping& operator=(const Keeping&) = delete;

  bool isFull() const { return fIsFull; }
  /// The frame gives the place back.
  void handOver() { fKept = nullptr; }

 private:
  std::atomic<int>* fKept;
  bool fIsFull = false;
};

OXVisionVideoInput::Subscription::Subscription(OXVisionVideoInput& pDevice,
                                               const std::vector<FrameFormat>& pFormats)
    : fDevice(boost::static_pointer_cast<OXVisionVideoInput>(pDevice.shared_from_this())),
      fFormats(pFormats) {
  for (const FrameFormat& format : fFormats) {
    Stream& stream = fStreams.emplace_back();
    if (!pDevice.xCamera(format.camera)) continue;
    stream.camera = pDevice.fCameraProperties[static_cast<std::size_t>(format.camera)];
    stream.since = stream.camera->fNewestFrame.count;
  }
}

bool OXVisionVideoInput::Subscription::isOver() const {
  return fSubscriber->fIsUnsubscribed || fDevice.expired();
}

std::uint64_t OXVisionVideoInput::Subscription::newestFrame(std::size_t pStream) const {
  if (pStream >= fStreams.size()) return 0;
  const std::uint64_t newest = fStreams[pStream].camera->fNewestFrame.number;
  return newest > fStreams[pStream].since ? newest : 0;
}

std::int64_t OXVisionVideoInput::Subscription::newestAgeUs(std::size_t pStream) const {
  if (newestFrame(pStream) == 0) return -1;
  const std::int64_t arrived = fStreams[pStream].camera->fNewestFrame.arrivedUs;
  // The system's clock may have been set back.
  return std::max<std::int64_t>(OXClock::get().nowUs() - arrived, 0);
}

bool OXVisionVideoInput::Subscription::xFits(const FrameFormat& pFormat,
                                             const FrameTarget& pTarget) const {
  int width = 0;
  int height = 0;
  setSizeFromResolution(pFormat.resolution, width, height);
  return pTarget.bytes >= static_cast<std::size_t>(width) * static_cast<std::size_t>(height) *
                              static_cast<std::size_t>(getLayersFromColorSpace(pFormat.colorSpace));
}

FrameSubscription::Result OXVisionVideoInput::Subscription::take(std::size_t pStream,
                                                                 std::uint64_t pAfter,
                                                                 Pixels pPixels, Frame& pFrame,
                                                                 const FrameTarget& pTarget) {
  // Outlives what is done with it here, also as the last owner.
  const boost::shared_ptr<OXVisionVideoInput> device = fDevice.lock();
  if (!device || fSubscriber->fIsUnsubscribed) return Result::kOver;
  if (pStream >= fStreams.size())
    return refuse(id(), report::text("there is no stream ", pStream, ": it has ", fStreams.size()));
  const FrameFormat& format = fFormats[pStream];
  if (pTarget.data && pPixels == Pixels::kConverted && !xFits(format, pTarget))
    return refuse(id(), report::text("the target of ", pTarget.bytes, " bytes is too small"));
  Keeping place(fKept, !pTarget.data);
  if (place.isFull())
    return refuse(id(), report::text("the client keeps ", kKeptFrames,
                                     " frames already: give one back first"));
  const Stream& stream = fStreams[pStream];
  const FrameRequest request{*fSubscriber, *stream.camera, format, std::max(pAfter, stream.since),
                             pPixels,      pTarget};
  TakenFrame taken;
  Result result = Result::kFailed;
  try {
    result = device->xTake(request, taken);
  } catch (const OXError&) {
    return Result::kFailed;  // a record says why
  } catch (const std::exception& error) {
    return refuse(id(), error.what());
  }
  if (result != Result::kFrame) return result;
  place.handOver();
  return xDeliver(*device, request, taken, pFrame);
}

FrameSubscription::Result OXVisionVideoInput::Subscription::xDeliver(OXVisionVideoInput& pDevice,
                                                                     const FrameRequest& pRequest,
                                                                     TakenFrame& pTaken,
                                                                     Frame& pFrame) {
  const int camera = pRequest.format.camera;
  Returns& returns = pRequest.pixels == Pixels::kRaw ? fRaw : fConverted;
  OXImage& image = *pTaken.image;
  Frame::Loan loan;
  if (pRequest.target.data && pTaken.buffer) {
    const std::size_t bytes = bytesOf(image);
    const bool fits = bytes <= pRequest.target.bytes && bytes <= image.fCapacityBytes;
    if (fits && bytes) {
      const OXDurationScope duration(pDevice.fStages.copy);
      std::memcpy(pRequest.target.data, image.fData, bytes);
    }
    pDevice.xGiveBack(camera, pRequest.pixels, pTaken.buffer);
    if (!fits)
      return refuse(id(), report::text("the target of ", pRequest.target.bytes,
                                       " bytes is too small for ", bytes));
    image.fData = static_cast<unsigned char*>(pRequest.target.data);
    image.fCapacityBytes = pRequest.target.bytes;
  } else if (pTaken.buffer) {
    loan = {boost::shared_ptr<Frame::Lender>(shared_from_this(), &returns), camera,
            std::move(pTaken.buffer)};
  }
  fSubscriber->countFrame(OXClock::get().nowUs());
  pFrame = Frame(image, pTaken.mark.number, pTaken.mark.arrivedUs, std::move(loan));
  return Result::kFrame;
}

void OXVisionVideoInput::Subscription::Returns::takeBack(
    int pCamera, const boost::shared_ptr<void>& pBuffer) noexcept {
  if (const boost::shared_ptr<OXVisionVideoInput> device = fSubscription.fDevice.lock())
    device->xGiveBack(pCamera, fPixels, pBuffer);
  --fSubscription.fKept;
}

bool OXVisionVideoInput::Subscription::end() {
  const boost::shared_ptr<OXVisionVideoInput> device = fDevice.lock();
  return !device || device->xEndStream(fSubscriber);
}

}  // namespace OX
