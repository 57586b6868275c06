/// A subscriber that is served frame by frame.
#pragma once

#include <atomic>
#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include <oxvision/iframesource.h>
#include "camerarecord.h"
#include "frames/framerequest.h"
#include "oxvisionvideoinput.h"
#include "subscriberrecord.h"

namespace OX {

/// Shares the records of the subscriber and of its cameras, so that what is asked without a lock
/// can be answered also after the end of the subscriber, and of the device, which is held weakly.
/// Takes the frames back itself: it counts how many a client keeps.
class OXVisionVideoInput::Subscription final
    : public FrameSubscription,
      public boost::enable_shared_from_this<OXVisionVideoInput::Subscription> {
 public:
  /// Before the device knows the subscriber: frames that come from now on are new.
  Subscription(OXVisionVideoInput& pDevice, const std::vector<FrameFormat>& pFormats);
  void setSubscriber(const boost::shared_ptr<VisionModuleInfo>& pSubscriber) {
    fSubscriber = pSubscriber;
  }

  const std::string& id() const override { return fSubscriber->fName; }
  const std::vector<FrameFormat>& formats() const override { return fFormats; }
  bool isOver() const override;
  std::uint64_t newestFrame(std::size_t pStream) const override;
  std::int64_t newestAgeUs(std::size_t pStream) const override;
  Result take(std::size_t pStream, std::uint64_t pAfter, Pixels pPixels, Frame& pFrame,
              const FrameTarget& pTarget) override;
  bool end() override;

 private:
  /// A camera, and the number of its last frame before the stream began; neither for an index
  /// outside the table, which the device then refuses.
  struct Stream {
    boost::shared_ptr<RealCameraProperties> camera;
    std::uint64_t since = 0;
  };
  /// Takes buffers of one kind back.
  class Returns final : public Frame::Lender {
   public:
    Returns(Subscription& pSubscription, Pixels pPixels)
        : fSubscription(pSubscription), fPixels(pPixels) {}
    void takeBack(int pCamera, const boost::shared_ptr<void>& pBuffer) noexcept override;

   private:
    Subscription& fSubscription;
    const Pixels fPixels;
  };
  class Keeping;

  bool xFits(const FrameFormat& pFormat, const FrameTarget& pTarget) const;
  Result xDeliver(OXVisionVideoInput& pDevice, const FrameRequest& pRequest, TakenFrame& pTaken,
                  Frame& pFrame);

  const boost::weak_ptr<OXVisionVideoInput> fDevice;
  boost::shared_ptr<VisionModuleInfo> fSubscriber;
  std::vector<FrameFormat> fFormats;
  std::vector<Stream> fStreams;
  std::atomic<int> fKept{0};  ///< frames that clients have
  Returns fConverted{*this, Pixels::kConverted};
  Returns fRaw{*this, Pixels::kRaw};
};

}  // namespace OX
