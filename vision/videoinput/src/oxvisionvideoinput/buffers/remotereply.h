/// The images of one remote reply, from the lock under which they were lent until they are copied.
#pragma once

#include <boost/shared_ptr.hpp>
#include <memory>
#include <vector>

#include <oxframework/oximage.h>
#include "claim.h"
#include "oxvisionvideoinput.h"

namespace OX {

/// The pixels of a reply are copied outside the lock. For that time each image is pinned: it has a
/// read count of its own besides the subscriber's, so the pixels stay whatever others do to the
/// subscriber, its hold or the pool. However the request ends, the destructor takes the lock, drops
/// the pins and releases what the request took.
///
/// On the stack of one request, one thread only. add() needs fVisionModulesLock for writing;
/// everything else must be called without it.
class OXVisionVideoInput::RemoteReply {
 public:
  /// Ends a subscriber's holds; called with the lock held for writing, unless the subscriber has
  /// been removed meanwhile.
  using Release = void (OXVisionVideoInput::*)(const boost::shared_ptr<VisionModuleInfo>&);

  RemoteReply(OXVisionVideoInput& pDevice, Release pRelease);
  ~RemoteReply();
  RemoteReply(const RemoteReply&) = delete;
  RemoteReply& operator=(const RemoteReply&) = delete;

  /// Adds and pins the image that the claim's subscriber holds on the claim's camera; a null image,
  /// or no hold, adds an empty entry. After the first call the destructor ends the subscriber's
  /// holds.
  void add(const Claim& pClaim, const OXImage* pImage);

  /// The 12-element array of the one image, which must have been added.
  OXValue toValue() const;
  /// The arrays of all images, each with an empty array in place of its pixels, and an empty array
  /// for an empty entry; then one binary with the pixels of all.
  OXValue toJoinedValue() const;

 private:
  /// The view shares the buffer's pixels and keeps the format that they had when they were lent.
  struct Pin {
    Pin(const OXImage& pImage, int pCamera, const boost::shared_ptr<OXVisionBuffer>& pBuffer)
        : view(pImage, OXImage::ViewTag()), camera(pCamera), buffer(pBuffer) {}
    OXImage view;
    int camera;
    boost::shared_ptr<OXVisionBuffer> buffer;
  };

  OXVisionVideoInput& fDevice;
  Release fRelease;
  boost::shared_ptr<VisionModuleInfo> fSubscriber;
  std::vector<std::unique_ptr<Pin>> fImages;
};

}  // namespace OX
