// Joined in a block of its own and not in a scratch array of the device: two replies at once can't
// mix, and the block goes to the socket as it is.
#include "buffers/remotereply.h"

#include <boost/make_shared.hpp>
#include <cstring>
#include <exception>

namespace OX {

OXVisionVideoInput::RemoteReply::~RemoteReply() {
  if (!fSubscriber) return;
  try {
    const OXCriticalSectionWrite lock(fDevice.fVisionModulesLock);
    for (const auto& image : fImages)
      if (image) fDevice.xDropReader(image->camera, *image->buffer);
    if (!fSubscriber->fHasLeft) (fDevice.*fRelease)(fSubscriber);
  } catch (const std::exception&) {
    // Only the text of a record can fail here, and a destructor has nobody to tell.
  }
}

void OXVisionVideoInput::RemoteReply::add(const Claim& pClaim, const OXImage* pImage) {
  const boost::shared_ptr<OXVisionBuffer>& held = pClaim.wish.fLockedImage;
  fImages.push_back(pImage && held ? std::make_unique<Pinned>(*pImage, pClaim.index, held)
                                   : nullptr);
  if (fImages.back()) ++held->fReadLockCount;
}

OXValue OXVisionVideoInput::RemoteReply::joined() const {
  std::size_t total = 0;
  for (const auto& image : fImages) total += image ? image->view.getSizeBytes() : 0;
  const auto pixels = boost::make_shared_noinit<unsigned char[]>(total ? total : 1);
  unsigned char* position = pixels.get();
  OXValue result;
  for (const auto& image : fImages) {
    if (!image) {
      result.arrayPush(OXValue::Array());
      continue;
    }
    const std::size_t size = image->view.getSizeBytes();
    if (size) std::memcpy(position, image->view.fData, size);
    position += size;
    OXImage header(image->view, OXImage::ViewTag());
    header.fData = nullptr;
    OXValue description = header.toOXValue();
    description[6] = OXValue(OXValue::Array());
    result.arrayPush(std::move(description));
  }
  OXValue binary;
  binary.AdoptBinary(boost::shared_ptr<const void>(pixels, pixels.get()), pixels.get(),
                     static_cast<int>(total));
  result.arrayPush(std::move(binary));
  return result;
}

}  // namespace OX
