/// Streams of frames, with verbs.
#pragma once

#include <string>
#include <vector>

#include <oxvision/iframesource.h>
#include "support/device_fixture.h"

namespace OX::test {

using Stream = boost::shared_ptr<FrameSubscription>;
using Result = FrameSubscription::Result;
using Pixels = FrameSubscription::Pixels;

/// One stream of camera 0 unless told.
inline Stream open(OXVisionVideoInput& pDevice, int pResolution = kQVGA, int pColorSpace = kYuv,
                   const char* pName = "s", int pCamera = 0, int pFps = 30) {
  return pDevice.subscribeFrames(pName, {{pCamera, pResolution, pColorSpace}}, false, pFps);
}

/// "number:first byte" of the newest frame after pAfter, which is given back, or why there is none.
inline std::string next(FrameSubscription& pStream, std::uint64_t pAfter = 0,
                        Pixels pPixels = Pixels::kConverted) {
  Frame frame;
  switch (pStream.take(0, pAfter, pPixels, frame)) {
    case Result::kNothingNew:
      return "nothing";
    case Result::kOver:
      return "over";
    case Result::kFailed:
      return "failed";
    case Result::kFrame:
      break;
  }
  return std::to_string(frame.number()) + ":" + std::to_string(frame.image().fData[0]);
}

inline std::vector<unsigned char> bytesOf(const OXImage& pImage) {
  return {pImage.fData, pImage.fData + pImage.getSizeBytes()};
}

/// Counts what it is told.
class CountingListener : public FrameListener {
 public:
  void onFrame(int) override { ++fFrames; }
  void onSubscriberEnded() override { ++fEnds; }

  std::atomic<int> fFrames{0};
  std::atomic<int> fEnds{0};
};

}  // namespace OX::test
