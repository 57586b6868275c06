// The typed proxy: the example that the module publishes, unchanged, and both ways to a device, by
// the broker of this process and over a connection.
#include <oxclient/oxvideodeviceproxy.h>

#include <fstream>

#include "service.h"

namespace OX::test {
namespace {

OXValue push(OXVideoDeviceProxy& pCamera, int pIndex) {
  const OXValue frame = patternFrame(320, 240, pIndex);
  EXPECT_TRUE(pCamera.putImage(pIndex, 320, 240, frame));
  return frame;
}

/// The context of the module's example: a vision module with the declarations that it uses.
class VisionModule {
 public:
  explicit VisionModule(boost::shared_ptr<OXBroker> pBroker) : fBroker(std::move(pBroker)) {}

  void run(int pCameraIndex, int pResolution, int pColorSpace, int pFps){
#include "module_example.inc"
  }

  std::string seen;

 private:
  boost::shared_ptr<OXBroker> getParentBroker() { return fBroker; }
  void process(const OXImage* pImage) {
    ASSERT_TRUE(pImage);
    seen = std::to_string(pImage->fWidth) + "x" + std::to_string(pImage->fHeight) + " " +
           std::to_string(pImage->fColorSpace);
  }

  boost::shared_ptr<OXBroker> fBroker;
  boost::shared_ptr<OX::OXVideoDeviceProxy> fCameraProxy;
  boost::shared_ptr<OX::OXVideoDeviceProxy>& fCamProxy = fCameraProxy;
};

std::string replaceAll(std::string pText, const std::string& pOld, const std::string& pNew) {
  for (std::size_t at = 0; (at = pText.find(pOld, at)) != std::string::npos; at += pNew.size())
    pText.replace(at, pOld.size(), pNew);
  return pText;
}

// The example's '#' lines are comments, and its dots a placeholder for the module's work.
std::string toCode(const std::string& pExample) {
  return replaceAll(replaceAll(pExample, "#", "//"), "...process...", "process(pointer);") + "\n";
}

TEST(Proxy, RunsThePublishedExample) {
  const CaptureLog log;
  Service service;
  const auto examples = service.broker->getModule("OXVideoDevice")->getModuleExamples();
  std::ifstream included(std::string(OX_PUBLISHED_TABLES) + "/module_example.inc");
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(included), {}), toCode(examples.at(0).text))
      << "what runs here is what is published";

  service.call("startFrameGrabber");
  service.call("putImage", 0, 320, 240, patternFrame(320, 240, 0));
  VisionModule module(service.broker);
  module.run(0, kQVGA, kRGB, 15);
  EXPECT_EQ(module.seen, "320x240 11");
  EXPECT_EQ(DeviceProbe(*service.simulator).pools(), "0/0 0/0");
}

TEST(Proxy, ReturnsPointersInTheSameProcessOnly) {
  const CaptureLog log;
  const Service service;
  OXVideoDeviceProxy local(service.broker);
  OXVideoDeviceProxy remote(service.client->getProxy("OXVideoDevice"));
  const std::string id = remote.subscribeCamera("follower", 1, kQVGA, kYUV422, 30);
  push(remote, 1);

  EXPECT_EQ(outcome([&] {
              remote.getImageLocal(id);
              return 0;
            }),
            "OXError: An image of another process has no pointer here, use getImageRemote instead");
  EXPECT_EQ(outcome([&] {
              remote.getDirectRawImageLocal(id);
              return 0;
            }),
            "OXError: An image of another process has no pointer here, use "
            "getDirectRawImageRemote instead");
  const OXValue reply = remote.getImageRemote(id);
  ASSERT_EQ(reply.getSize(), 12) << "the refusals left no hold";
  const OXImage* const image = local.getImageLocal(id);
  ASSERT_TRUE(image);
  EXPECT_EQ(show(image->toOXValue()), show(reply));
  EXPECT_TRUE(image->toOXValue()[6] == reply[6]);
  EXPECT_TRUE(remote.releaseImage(id));
}

// Methods that the other tests of this folder don't call by type: one of each form of argument and
// result, both ways.
TEST(Proxy, WorksAlikeLocallyAndRemotely) {
  const CaptureLog log;
  const Service service;
  OXVideoDeviceProxy local(service.broker);
  OXVideoDeviceProxy remote(service.client->getProxy("OXVideoDevice"));
  for (OXVideoDeviceProxy* camera : {&local, &remote}) {
    const std::string id = camera->subscribe("m", {1, 0}, {kQVGA, kVGA}, {kRGB, kYuv}, 30);
    EXPECT_EQ(camera->getActiveCameras(id), (std::vector<int>{1, 0}));
    EXPECT_EQ(camera->setColorSpaces(id, {kBGR, 17}), (std::vector<int>{1, 0}));
    EXPECT_EQ(camera->getCamerasParameter(id, kCameraBufferSizeID), (std::vector<int>{4, 4}));
    EXPECT_EQ(camera->setCamerasParameter(id, kCameraFrameRateID, {30, 30}),
              (std::vector<int>{1, 1}));
    EXPECT_EQ(camera->releaseImages(id), (std::vector<int>{0, 0}));
    push(*camera, 0);
    push(*camera, 1);
    EXPECT_EQ(show(camera->getImagesLocal(id)), "[true, true]");
    EXPECT_EQ(camera->releaseImages(id), (std::vector<int>{1, 1}));
    EXPECT_EQ(camera->getImagesRemote(id).getSize(), 3);
    EXPECT_EQ(camera->getAngPosFromImgPos({0.5f, 0.5f}), (std::vector<float>{0.f, 0.f}));
    EXPECT_EQ(camera->resolutionToSizes(kVGA), (std::vector<int>{640, 480}));
    EXPECT_EQ(show(camera->getExpectedImageParameters(1)), "[[320, 240], 30]");
    EXPECT_FALSE(camera->isFrameGrabberOff());
    EXPECT_TRUE(camera->setActiveCamera(1));
    camera->setParam(kCameraSelectID, 0);
    EXPECT_EQ(camera->getParam(kCameraSelectID, 1), 0);
    EXPECT_EQ(outcome([&] { return camera->getResolution(id); }),
              "OXError: Multi stream module can't call this method, use getResolutions instead");
    camera->unsubscribeAllInstances("m");
    EXPECT_EQ(outcome([&] { return camera->getFrameRate(id); }),
              "OXError: GetFrameRate(m) : module m unknown!");
  }
}

TEST(Proxy, ReportsAMissingDevice) {
  const CaptureLog log;
  const boost::shared_ptr<OXBroker> empty = OXBroker::create();
  const auto make = [](auto pWay) {
    return outcome([&] {
      OXVideoDeviceProxy proxy(pWay);
      return 0;
    });
  };
  EXPECT_EQ(make(boost::shared_ptr<OXBroker>()),
            "OXError: There is no broker to find the device by");
  EXPECT_EQ(make(boost::shared_ptr<OXProxy>()),
            "OXError: There is no proxy to reach the device by");
  EXPECT_THAT(make(empty), testing::HasSubstr("OXVideoDevice"));

  auto service = std::make_unique<Service>();
  OXVideoDeviceProxy local(service->broker);
  service.reset();
  EXPECT_THROW(local.getImageLocal("a"), OXError) << "the broker has ended";
}

TEST(Proxy, HasTheMethodsOfAFileCamera) {
  const CaptureLog log;
  const Service file(Service::Camera::File);
  OXVideoDeviceProxy camera(file.client->getProxy("OXVideoDevice"));
  camera.setVideo("/no/such/file.oxv", OXValue(), true, 0, 0);
  camera.replaySpeed(12.5f);
  camera.nextImage();
  camera.previousImage();
  EXPECT_EQ(camera.getCurrentImageNumber(), -1) << "the image before the first";
}

}  // namespace
}  // namespace OX::test
