// What the device offers to services that deliver frames: subscriptions, and being told of frames.
#include <algorithm>
#include <boost/make_shared.hpp>

#include <oxframework/oxlog.h>
#include "frames/subscription.h"

namespace OX {

// What must not fail after the device knows the subscriber comes first.
boost::shared_ptr<FrameSubscription> OXVisionVideoInput::subscribeFrames(
    const std::string& pName, const std::vector<FrameFormat>& pFormats, bool pIsMultiStream,
    int pFps) {
  const char* const method = pIsMultiStream ? "subscribeCameras" : "subscribeCamera";
  if (!pIsMultiStream && pFormats.size() != 1)
    xFailSubscription(method, pName, "One stream has one format", false);
  std::vector<FrameFormat> formats = pFormats;
  // Resolved for good: the stream does not follow the active camera.
  if (!pIsMultiStream && formats.front().camera < 0) formats.front().camera = fActiveCamera;
  std::vector<int> cameras;
  std::vector<int> resolutions;
  std::vector<int> colorSpaces;
  for (const FrameFormat& format : formats) {
    cameras.push_back(format.camera);
    resolutions.push_back(format.resolution);
    colorSpaces.push_back(format.colorSpace);
  }
  if (pIsMultiStream) xCheckSubscribeCameras(pName, cameras, resolutions, colorSpaces);
  const int frameRate = xRaiseToMinimum(pFps, method);
  const auto subscription = boost::make_shared<Subscription>(*this, formats);
  subscription->setSubscriber(
      pIsMultiStream
          ? xSubscribeCameras(pName, cameras, resolutions, colorSpaces, frameRate, Purpose::kFrames)
          : xSubscribeCamera(pName, cameras.front(), resolutions.front(), colorSpaces.front(),
                             frameRate, Purpose::kFrames));
  return subscription;
}

std::optional<std::chrono::microseconds> OXVisionVideoInput::untilNextFrame(int) const {
  return {};
}

bool OXVisionVideoInput::xEndStream(const boost::shared_ptr<VisionModuleInfo>& pSubscriber) {
  const OXCriticalSectionWrite lock(fVisionModulesLock);
  return xTryToEnd(pSubscriber, "its stream ended");
}

void OXVisionVideoInput::setFrameListener(const boost::weak_ptr<FrameListener>& pListener) {
  const detail::MutexLock hold(fListenerGuard);
  fListener = pListener;
  fHasListener = !pListener.expired();
}

boost::shared_ptr<FrameListener> OXVisionVideoInput::xListener() const {
  if (!fHasListener) return {};
  const detail::MutexLock hold(fListenerGuard);
  return fListener.lock();
}

void OXVisionVideoInput::xTellFrame(int pCamera) const {
  if (const boost::shared_ptr<FrameListener> listener = xListener()) listener->onFrame(pCamera);
}

void OXVisionVideoInput::xTellSubscriberEnded() const {
  if (const boost::shared_ptr<FrameListener> listener = xListener()) listener->onSubscriberEnded();
}

}  // namespace OX
