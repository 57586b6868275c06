// A frame for a stream. It is found by its number and never by its age: a frame that is converted
// already, for a request or for another stream, is shared with the lock held for reading; one that
// is being converted is waited for; else the camera is asked, and the result is left in the pool
// for whoever wants it. No turn of the subscriber is taken and no hold made, so whatever others do
// to the subscriber waits for no stream.
#include <chrono>
#include <utility>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxlog.h>
#include "buffers/lending.h"
#include "frames/subscription.h"
#include "turn.h"

namespace OX {
namespace {

using Result = FrameSubscription::Result;

// For whoever starts or changes the cameras: the stream comes again.
constexpr std::chrono::milliseconds kTurnBound(50);

bool isRaw(const FrameRequest& pRequest) {
  return pRequest.pixels == FrameSubscription::Pixels::kRaw;
}

bool isOff(const RealCameraProperties& pCamera) { return pCamera.fGrabberState <= kGrabberStopped; }

// The buffer of a frame in the format of the request, converted or under way; null when there is
// none.
const boost::shared_ptr<OXVisionBuffer>* findFrame(const FrameRequest& pRequest,
                                                   std::uint64_t pNumber) {
  int width = 0;
  int height = 0;
  setSizeFromResolution(pRequest.format.resolution, width, height);
  for (const auto& buffer : pRequest.record.fImageBuffers)
    if (buffer->fFrame.number == pNumber &&
        buffer->hasFormat(width, height, pRequest.format.colorSpace))
      return &buffer;
  return nullptr;
}

}  // namespace

/// A frame of the camera until its end, or until a client has it.
class OXVisionVideoInput::SourceScope {
 public:
  SourceScope(OXVisionVideoInput& pDevice, int pCamera) : fDevice(pDevice), fCamera(pCamera) {}
  ~SourceScope() {
    if (fFrame.source) fDevice.xReturnLent(fCamera, fFrame.source);
  }
  SourceScope(const SourceScope&) = delete;
  SourceScope& operator=(const SourceScope&) = delete;

  LentFrame& frame() { return fFrame; }

 private:
  OXVisionVideoInput& fDevice;
  const int fCamera;
  LentFrame fFrame;
};

void OXVisionVideoInput::xCountLent(OXVisionBuffer& pBuffer) {
  ++pBuffer.fLentCount;
  ++pBuffer.fReadLockCount;
}

void OXVisionVideoInput::xPass(const BufferPtr& pBuffer, TakenFrame& pTaken) {
  pTaken.image.emplace(*pBuffer->fImage, OXImage::ViewTag());
  pTaken.mark = pBuffer->fFrame;
  pTaken.buffer = pBuffer;
}

bool OXVisionVideoInput::xShareFrame(const FrameRequest& pRequest, std::uint64_t pNumber,
                                     TakenFrame& pTaken) {
  const OXCriticalSectionRead lock(fVisionModulesLock);
  if (pRequest.record.fGrabberState != kGrabberRunning) return false;
  const BufferPtr* const found = findFrame(pRequest, pNumber);
  if (!found || (*found)->fWriteLockCount > 0) return false;
  xCountLent(**found);
  xPass(*found, pTaken);
  return true;
}

bool OXVisionVideoInput::xJoinFrame(const FrameRequest& pRequest, std::uint64_t pNumber,
                                    TakenFrame& pTaken) {
  const BufferPtr* const found = findFrame(pRequest, pNumber);
  if (!found) return false;
  BufferPtr buffer = *found;
  if (buffer->fWriteLockCount > 0) {
    buffer = xAwaitConversion(pRequest.record, std::move(buffer));
    if (!buffer) return false;
    // The count that waiting has raised is the stream's.
    --buffer->fReadLockCount;
    // It may have failed, or been of pixels that can't be converted.
    if (buffer->fFrame.number != pNumber) return false;
  }
  xCountLent(*buffer);
  xPass(buffer, pTaken);
  return true;
}

// Another one with this format makes it worth while to leave the frame in the pool.
bool OXVisionVideoInput::xIsAlone(const FrameRequest& pRequest) const {
  const FrameFormat& format = pRequest.format;
  for (const auto& [id, subscriber] : fVisionModules) {
    if (subscriber.get() == &pRequest.subscriber) continue;
    const RequestedCameraProperties& wish = subscriber->wish(format.camera);
    if (wish.fStreamResolution == format.resolution && wish.fStreamColorSpace == format.colorSpace)
      return false;
    const bool isOfCamera = subscriber->fIsMultiStream
                                ? wish.fHasBuffers
                                : xCurrentCamera(*subscriber) == format.camera;
    if (isOfCamera && wish.fStreamResolution < 0 && wish.fResolution == format.resolution &&
        wish.fColorSpace == format.colorSpace)
      return false;
  }
  return true;
}

// A camera that is being opened or closed has no frame; when it is open, streams are told.
bool OXVisionVideoInput::xStartForFrames(const FrameRequest& pRequest) {
  if (isOff(pRequest.record)) {
    const BoundedTurn turn(fCamerasTurn, fVisionModulesLock, kTurnBound);
    if (!turn.isTaken()) return false;
    xStartFrameGrabber(pRequest.format.camera);
  }
  return pRequest.record.fGrabberState == kGrabberRunning;
}

// Looked at twice, since others may have taken the step, or converted the frame, before this thread
// has the lock.
Result OXVisionVideoInput::xTake(const FrameRequest& pRequest, TakenFrame& pTaken) {
  const auto isDue = [&] {
    const auto left = untilNextFrame(pRequest.format.camera);
    return left && left->count() <= 0;
  };
  std::uint64_t newest = pRequest.record.fNewestFrame.number;
  if (!isDue()) {
    const bool starts = !isRaw(pRequest) && isOff(pRequest.record);
    if (newest <= pRequest.after && !starts) return Result::kNothingNew;
    if (newest > pRequest.after && !isRaw(pRequest) && xShareFrame(pRequest, newest, pTaken))
      return Result::kFrame;
  }
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  if (pRequest.subscriber.fIsUnsubscribed) return Result::kOver;
  if (isRaw(pRequest)) {
    // Off and due: it has been told what to replay next, and the next frame is of that.
    if (isOff(pRequest.record) && isDue() && !xStartForFrames(pRequest)) return Result::kNothingNew;
    return xTakeFromCamera(pRequest, pTaken);
  }
  if (!xStartForFrames(pRequest)) return Result::kNothingNew;
  newest = pRequest.record.fNewestFrame.number;
  const bool mayJoin = newest > pRequest.after && !isDue();
  if (mayJoin && xJoinFrame(pRequest, newest, pTaken)) return Result::kFrame;
  return xTakeFromCamera(pRequest, pTaken);
}

Result OXVisionVideoInput::xTakeFromCamera(const FrameRequest& pRequest, TakenFrame& pTaken) {
  const int camera = pRequest.format.camera;
  SourceScope source(*this, camera);
  LentFrame& frame = source.frame();
  xLendNewest(camera, pRequest.subscriber.fName, pRequest.after, frame);
  if (frame.isFailed) return Result::kFailed;
  if (!frame.source) return Result::kNothingNew;
  if (isRaw(pRequest)) {
    pTaken.image.emplace(*frame.image, OXImage::ViewTag());
    pTaken.mark = frame.mark;
    pTaken.buffer = std::exchange(frame.source, {});
    return Result::kFrame;
  }
  // Others may have begun or ended the same conversion meanwhile.
  if (xJoinFrame(pRequest, frame.mark.number, pTaken)) return Result::kFrame;
  if (pRequest.target.data && xFillsImage(pRequest.format.colorSpace) && xIsAlone(pRequest)) {
    OXImage& image = pTaken.image.emplace(pRequest.format.resolution, pRequest.format.colorSpace,
                                          true, 0.f, 0.f, 0.f, 0.f);
    image.setExternalData(static_cast<unsigned char*>(pRequest.target.data), pRequest.target.bytes);
    pTaken.mark = frame.mark;
    return xConvertInto(pRequest, frame, image) ? Result::kFrame : Result::kFailed;
  }
  const BufferPtr buffer = xConvertFrame(pRequest, frame);
  if (!buffer) return Result::kFailed;
  xPass(buffer, pTaken);
  return Result::kFrame;
}

// With the lock held for reading, as frames are shared; only a buffer outside of its pool that
// nobody reads any more is kept for the next time, for which it is needed for writing.
void OXVisionVideoInput::xGiveBack(int pCamera, FrameSubscription::Pixels pPixels,
                                   const boost::shared_ptr<void>& pBuffer) noexcept {
  if (pPixels == FrameSubscription::Pixels::kRaw) return xReturnLent(pCamera, pBuffer);
  BufferPtr buffer = boost::static_pointer_cast<OXVisionBuffer>(pBuffer);
  {
    const OXCriticalSectionRead lock(fVisionModulesLock);
    --buffer->fLentCount;
    if (--buffer->fReadLockCount > 0 || !buffer->fIsOutside) return;
  }
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  xKeepSpareBuffer(*xCamera(pCamera), buffer);
}

}  // namespace OX
