// Each allocation of each operation fails once. Whatever the operation made of it, ordinary calls
// then bring all counters back to zero, and the next client gets its image.
#include <array>
#include <functional>
#include <new>

#include "frames_fixture.h"
#include "support/allocations.h"
#include "videoinput/filecam/filecam_fixture.h"

namespace OX::test {
namespace {

struct Operation {
  const char* name;
  std::function<void()> prepare, call;
};

/// Ends what clients have left, with the calls that they have for it. The text says what stayed.
std::string cleanUp(OXVisionVideoInput& pDevice) {
  const DeviceProbe probe(pDevice);
  std::string found = probe.complaints();
  std::vector<std::string> ids;
  for (const auto& entry : probe.subscribers()) ids.push_back(entry.first);
  for (const std::string& id : ids) {
    outcome([&] { return pDevice.releaseImage(id); });
    outcome([&] { return pDevice.releaseImages(id); });
    pDevice.unsubscribe(id);
  }
  for (int i = 0; i < probe.cameras(); ++i)
    if (probe.lentFrames(i) != 0)
      found += report::text(probe.lentFrames(i), " frames of camera ", i, " stay lent; ");
  return found + probe.complaints();
}

/// pStart makes a new device; pServe asks for an image as a new client, and returns whether it
/// came.
void failEachAllocation(const std::vector<Operation>& pOperations,
                        const std::function<OXVisionVideoInput&()>& pStart,
                        const std::function<bool()>& pServe) {
  for (const Operation& operation : pOperations) {
    std::string wrong;
    bool happened = true;
    for (long number = 1; happened && wrong.empty(); ++number) {
      OXVisionVideoInput& device = pStart();  // new: what is full once has room the next time
      operation.prepare();
      const int holds = DeviceProbe(device).holds();
      bool threw = true;
      {
        const FailingAllocation failure(number, 1, FailingAllocation::kThisThread);
        try {
          operation.call();
          threw = false;
        } catch (const OXError&) {
        } catch (const std::bad_alloc&) {
        }
        happened = failure.hasHappened();
      }
      if (threw && DeviceProbe(device).holds() > holds) wrong = "it threw and left a hold; ";
      wrong += cleanUp(device);
      if (!pServe()) wrong += "the next client gets no image; ";
      wrong += cleanUp(device);
      EXPECT_EQ(wrong, "") << "allocation " << number << " of " << operation.name;
    }
  }
}

// Long enough for an allocation of their own.
constexpr const char* kOne = "a subscriber of one stream";
constexpr const char* kSeveral = "a subscriber of several streams";
const std::vector<int> kFirst{0};
const std::vector<int> kBoth{0, 1};

TEST_F(SimulatorTest, WhicheverAllocationFailsTheCountersStayRight) {
  const std::string video =
      testing::TempDir() + "memory_pressure" + std::to_string(::getpid()) + ".oxv";
  const auto idle = [&] {};
  const auto pushed = [&] {
    push(0);
    push(1);
  };
  const auto one = [&](int pColorSpace = kRGB) {
    subscribe(kOne, kQVGA, pColorSpace);
    pushed();
  };
  const auto holding = [&] {
    one();
    fDevice->getImageLocal(kOne);
  };
  const auto holdingRaw = [&] {
    one();
    fDevice->getDirectRawImageLocal(kOne);
  };
  const auto recording = [&] {
    one();
    fDevice->recordVideo(kOne, video, 9, 1);
  };
  const auto both = [&](const std::vector<int>& pCameras = kBoth) {
    const std::vector<int> formats(pCameras.size(), kQVGA);
    const std::vector<int> spaces(pCameras.size(), kRGB);
    fDevice->subscribeCameras(kSeveral, pCameras, formats, spaces, 15);
    pushed();
  };
  const auto holdingBoth = [&] {
    both();
    fDevice->getImagesLocal(kSeveral);
  };
  Stream stream;
  const auto streaming = [&] {
    stream = open(*fDevice, kQVGA, kRGB, kOne);
    pushed();
  };
  // The first frame is kept, so that the buffer of the second is a new one.
  const auto takeTwo = [&](Pixels pPixels) {
    std::array<Frame, 2> frames;
    stream->take(0, 0, pPixels, frames[0]);
    pushed();
    stream->take(0, 0, pPixels, frames[1]);
  };
  const auto beside = [&](const auto& pState) {
    return [&, pState] {
      subscribe("another one beside it", kQVGA, kRGB);
      fDevice->subscribeCameras("several others beside it", kBoth, kBoth,
                                std::vector<int>{kRGB, kRGB}, 15);
      pState();
    };
  };
  std::vector<char> pixels(320 * 240 * 3, 'p');
  OXValue frame;
  frame.SetBinary(pixels.data(), static_cast<int>(pixels.size()));
  const std::vector<Operation> operations{
      {"subscribe", idle, [&] { subscribe(kOne, kVGA, kRGB); }},
      {"a second subscribe", one, [&] { subscribe(kOne, k4VGA, kRGB); }},
      {"subscribeCameras", idle, [&] { both(); }},
      {"a second subscribeCameras", beside(both), [&] { both({1}); }},
      {"unsubscribe", one, [&] { fDevice->unsubscribe(kOne); }},
      {"unsubscribe beside others", beside(one), [&] { fDevice->unsubscribe(kOne); }},
      {"unsubscribe with a hold", holding, [&] { fDevice->unsubscribe(kOne); }},
      {"unsubscribe with a raw hold", holdingRaw, [&] { fDevice->unsubscribe(kOne); }},
      {"unsubscribe while recording", recording, [&] { fDevice->unsubscribe(kOne); }},
      {"unsubscribe of several", beside(holdingBoth), [&] { fDevice->unsubscribe(kSeveral); }},
      {"unsubscribeAllInstances", beside(holdingBoth),
       [&] { fDevice->unsubscribeAllInstances(kSeveral); }},
      {"setResolution", beside(one), [&] { fDevice->setResolution(kOne, k4VGA); }},
      {"setResolution while recording", recording, [&] { fDevice->setResolution(kOne, kQQVGA); }},
      {"setColorSpace", one, [&] { fDevice->setColorSpace(kOne, kBGR); }},
      {"setColorSpace with a hold", holding, [&] { fDevice->setColorSpace(kOne, kBGR); }},
      {"setFrameRate", one, [&] { fDevice->setFrameRate(kOne, 5); }},
      {"setActiveCamera", one, [&] { fDevice->setActiveCamera(kOne, 1); }},
      {"the device's setActiveCamera", one, [&] { fDevice->setActiveCamera(1); }},
      {"setResolutions", both,
       [&] {
         fDevice->setResolutions(kSeveral, std::vector<int>{2, 0});
       }},
      {"setColorSpaces", both,
       [&] {
         fDevice->setColorSpaces(kSeveral, std::vector<int>{9, 10});
       }},
      {"setActiveCameras", [&] { both({0}); }, [&] { fDevice->setActiveCameras(kSeveral, kBoth); }},
      {"setActiveCameras with holds", beside(holdingBoth),
       [&] { fDevice->setActiveCameras(kSeveral, std::vector<int>{1}); }},
      {"getImageLocal", one, [&] { fDevice->getImageLocal(kOne); }},
      {"getImageLocal without a frame", [&] { subscribe(kOne); },
       [&] { fDevice->getImageLocal(kOne); }},
      {"getImageLocal while recording", recording, [&] { fDevice->getImageLocal(kOne); }},
      {"getImageLocal without a conversion", [&] { one(3); },
       [&] { fDevice->getImageLocal(kOne); }},
      {"getImageLocal with a hold", holding, [&] { fDevice->getImageLocal(kOne); }},
      {"getImageRemote", one, [&] { fDevice->getImageRemote(kOne); }},
      {"getImageRemote while recording", recording, [&] { fDevice->getImageRemote(kOne); }},
      {"getImagesLocal", beside(both), [&] { fDevice->getImagesLocal(kSeveral); }},
      {"getImagesLocal with holds", holdingBoth, [&] { fDevice->getImagesLocal(kSeveral); }},
      {"getImagesRemote", beside(both), [&] { fDevice->getImagesRemote(kSeveral); }},
      {"getDirectRawImageLocal", one, [&] { fDevice->getDirectRawImageLocal(kOne); }},
      {"getDirectRawImageLocal while recording", recording,
       [&] { fDevice->getDirectRawImageLocal(kOne); }},
      {"getDirectRawImageRemote", one, [&] { fDevice->getDirectRawImageRemote(kOne); }},
      {"getDirectRawImageInterprocess", one, [&] { fDevice->getDirectRawImageInterprocess(kOne); }},
      {"the same of several", both, [&] { fDevice->getDirectRawImageInterprocess(kSeveral); }},
      {"getDirectRawImagesLocal", both, [&] { fDevice->getDirectRawImagesLocal(kSeveral); }},
      {"getDirectRawImagesRemote", both, [&] { fDevice->getDirectRawImagesRemote(kSeveral); }},
      {"releaseImage", holding, [&] { fDevice->releaseImage(kOne); }},
      {"releaseImage of a raw image", holdingRaw, [&] { fDevice->releaseImage(kOne); }},
      {"releaseDirectRawImage", holdingRaw, [&] { fDevice->releaseDirectRawImage(kOne); }},
      {"releaseImages", holdingBoth, [&] { fDevice->releaseImages(kSeveral); }},
      {"releaseDirectRawImages", holdingBoth, [&] { fDevice->releaseDirectRawImages(kSeveral); }},
      {"recordVideo", one, [&] { fDevice->recordVideo(kOne, video, 9, 1); }},
      {"a second recordVideo", recording, [&] { fDevice->recordVideo(kOne, video, 9, 1); }},
      {"stopVideo", recording, [&] { fDevice->stopVideo(kOne); }},
      {"setParam of the resolution", one, [&] { fDevice->setParam(kCameraResolutionID, kVGA); }},
      {"setParam of the frame rate", one, [&] { fDevice->setParam(kCameraFrameRateID, 15); }},
      {"setParam of the camera", beside(one), [&] { fDevice->setParam(kCameraSelectID, 1); }},
      {"setCamerasParameter", both,
       [&] {
         fDevice->setCamerasParameter(kSeveral, kCameraResolutionID, std::vector<int>{2, 2});
       }},
      {"setCamerasParameterToDefault", both,
       [&] { fDevice->setCamerasParameterToDefault(kSeveral, kCameraFrameRateID); }},
      {"stopFrameGrabber", one, [&] { fDevice->stopFrameGrabber(); }},
      {"startFrameGrabber",
       [&] {
         one();
         fDevice->stopFrameGrabber();
       },
       [&] { fDevice->startFrameGrabber(); }},
      {"subscribeFrames", idle, [&] { open(*fDevice, kVGA, kRGB, kOne); }},
      {"subscribeFrames of several", idle,
       [&] {
         fDevice->subscribeFrames(kSeveral, {{0, kQVGA, kRGB}, {1, kVGA, kRGB}}, true, 30);
       }},
      {"take", streaming, [&] { takeTwo(Pixels::kConverted); }},
      {"take of raw frames", streaming, [&] { takeTwo(Pixels::kRaw); }},
      {"end", streaming, [&] { stream->end(); }},
      {"putImage", one, [&] { fDevice->putImage(0, 320, 240, frame); }},
      {"a refused putImage", one, [&] { fDevice->putImage(0, 640, 480, frame); }},
      {"onClientDisconnected", [&] { subscribe("VideoMonitorGestura"); },
       [&] { fDevice->onClientDisconnected("ClientDisconnected", OXValue("Gestura"), ""); }},
  };
  const auto start = [&]() -> OXVisionVideoInput& {
    startDevice();
    return *fDevice;
  };
  failEachAllocation(operations, start, [&] {
    fDevice->setParam(kCameraSelectID, 0, 1);
    subscribe("the next client of the device", kQVGA, kRGB);
    fDevice->startFrameGrabber();
    pushed();
    return fDevice->getImageRemote("the next client of the device").getSize() == 12;
  });
}

TEST_F(FileCamTest, WhicheverAllocationFailsTheCountersStayRight) {
  const std::string file = record(8);
  const std::string video = path("recorded.oxv");
  const auto playing = [&] {
    play(file, 0, true);
    subscribe(kOne);
  };
  const auto holding = [&] {
    playing();
    fDevice->getDirectRawImageLocal(kOne);
    fDevice->nextImage();
  };
  Stream stream;
  const auto streaming = [&] {
    play(file, 0, true);
    stream = open(*fDevice, kQVGA, kYUV422, kOne);
    fDevice->replaySpeed(1e9f);
  };
  const std::vector<Operation> operations{
      {"take", streaming,
       [&] {
         std::array<Frame, 7> frames;
         for (Frame& frame : frames) stream->take(0, 0, Pixels::kRaw, frame);
       }},
      {"setVideo", holding, [&] { play(file, 1, false); }},
      {"subscribe", [&] { play(file, 0, true); }, [&] { subscribe(kOne); }},
      {"unsubscribe", holding, [&] { fDevice->unsubscribe(kOne); }},
      {"getImageLocal", playing, [&] { fDevice->getImageLocal(kOne); }},
      {"getImageRemote", playing, [&] { fDevice->getImageRemote(kOne); }},
      {"getImagesLocal",
       [&] {
         play(file, 0, true);
         fDevice->subscribeCameras(kSeveral, kFirst, kFirst, kFirst, 5);
       },
       [&] { fDevice->getImagesLocal(kSeveral); }},
      {"getDirectRawImageLocal", playing, [&] { fDevice->getDirectRawImageLocal(kOne); }},
      {"getDirectRawImageRemote", playing, [&] { fDevice->getDirectRawImageRemote(kOne); }},
      {"releaseDirectRawImage", holding, [&] { fDevice->releaseDirectRawImage(kOne); }},
      {"recordVideo", playing, [&] { fDevice->recordVideo(kOne, video, 9, 1); }},
      {"previousImage", holding, [&] { fDevice->previousImage(); }},
      {"stopFrameGrabber", holding, [&] { fDevice->stopFrameGrabber(0); }},
      {"startFrameGrabber",
       [&] {
         holding();
         fDevice->stopFrameGrabber(0);
       },
       [&] { fDevice->startFrameGrabber(0); }},
      {"setResolution", playing, [&] { fDevice->setResolution(kOne, kVGA); }},
  };
  const auto start = [&]() -> OXVisionVideoInput& {
    startDevice();
    return *fDevice;
  };
  failEachAllocation(operations, start, [&] {
    play(file, 0, true);
    return fDevice->getImageRemote(subscribe("the next client of the device")).getSize() == 12;
  });
}

}  // namespace
}  // namespace OX::test
