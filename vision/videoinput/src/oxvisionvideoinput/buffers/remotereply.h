/// The images of one remote reply, from the lock under which they were lent to the end of the copy.
#pragma once

#include <boost/shared_ptr.hpp>
#include <memory>
#include <vector>

#include <oxframework/oximage.h>
#include "claim.h"
#include "oxvisionvideoinput.h"

namespace OX {

/// Pixels of a reply are copied outside the lock. Each image has a read count of its own for that
/// time, beside the subscriber's: whatever others do meanwhile to the subscriber, to its hold or to
/// the pool, the pixels stay. The destructor takes the lock, drops those counts and gives back what
/// the request took, on every way out.
///
/// add() needs fVisionModulesLock for writing; everything else runs without it.
class OXVisionVideoInput::RemoteReply {
 public:
  /// Gives back a subscriber's holds; called with the lock held for writing, and only if the
  /// subscriber has not left meanwhile.
  using Release = void (OXVisionVideoInput::*)(const boost::shared_ptr<VisionModuleInfo>&);

  RemoteReply(OXVisionVideoInput& pDevice, Release pRelease);
  ~RemoteReply();
  RemoteReply(const RemoteReply&) = delete;
  RemoteReply& operator=(const RemoteReply&) = delete;

  /// The image that the claim's subscriber holds on the claim's camera; null, or no hold, adds an
  /// empty place. From the first call on the destructor gives back the subscriber's holds.
  void add(const Claim& pClaim, const OXImage* pImage);

  /// The 12-element array of the one image.
  OXValue single() const;
  /// The arrays of all images, each with an empty array in place of its pixels (or an empty array
  /// in place of the whole for a null image), then one binary with the pixels of all.
  OXValue joined() const;

 private:
  struct Pinned {
    Pinned(const OXImage& pImage, int pCamera, const boost::shared_ptr<OXVisionBuffer>& pBuffer)
        : view(pImage, OXImage::ViewTag()), camera(pCamera), buffer(pBuffer) {}
    OXImage view;
    int camera;
    boost::shared_ptr<OXVisionBuffer> buffer;
  };

  OXVisionVideoInput& fDevice;
  Release fRelease;
  boost::shared_ptr<VisionModuleInfo> fSubscriber;
  std::vector<std::unique_ptr<Pinned>> fImages;
};

}  // namespace OX
