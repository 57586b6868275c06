// Pushes a frame with one bright pixel, then looks for it twice: in the image that the proxy
// returns and with the module BrightestSpot, which reads the image inside the broker.
#include <chrono>
#include <cstdio>
#include <exception>
#include <future>
#include <stdexcept>
#include <string>
#include <vector>

#include <oxclient/oxvideodeviceproxy.h>
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxproxies.h>
#include <oxframework/oxremotebroker.h>
#include <oxframework/oxvalue.h>
#include <oxframework/version.h>

namespace {

constexpr int kWidth = 320;
constexpr int kHeight = 240;
constexpr int kX = 200;
constexpr int kY = 30;

OX::OXValue brightSpotFrame() {
  std::vector<unsigned char> pixels(kWidth * kHeight * 3, 40);
  for (int layer = 0; layer < 3; ++layer) pixels[(kY * kWidth + kX) * 3 + layer] = 255;
  OX::OXValue frame;
  frame.SetBinary(pixels.data(), static_cast<int>(pixels.size()));
  return frame;
}

void print(const char* pWay, int pX, int pY, int pLuma) {
  std::printf("%s: %d %d %d\n", pWay, pX, pY, pLuma);
}

void run(const std::string& pAddress) {
  std::printf("version: %s\n", OX_VERSION);
  const auto remote = OX::OXRemoteBroker::connect(pAddress);
  OX::OXVideoDeviceProxy camera(remote->getProxy("OXVideoDevice"));
  const std::string id = camera.subscribeCamera("package", 0, OX::kQVGA, OX::kYuv, 30);
  camera.startFrameGrabber(0);
  camera.putImage(0, kWidth, kHeight, brightSpotFrame());

  const OX::OXValue image = camera.getImageRemote(id);
  const auto* luma = static_cast<const unsigned char*>(image[6].GetBinary());
  int brightest = 0;
  for (int i = 1; i < image[0].toInt() * image[1].toInt(); ++i)
    if (luma[i] > luma[brightest]) brightest = i;
  print("client", brightest % kWidth, brightest / kWidth, luma[brightest]);
  camera.unsubscribe(id);

  // The module waits for a frame that comes after its stream was opened.
  auto found = std::async(std::launch::async,
                          [&] { return remote->getProxy("BrightestSpot")->call("find", 0); });
  while (found.wait_for(std::chrono::milliseconds(5)) == std::future_status::timeout)
    camera.putImage(0, kWidth, kHeight, brightSpotFrame());
  const OX::OXValue spot = found.get();
  print("module", spot[0].toInt(), spot[1].toInt(), spot[2].toInt());
}

}  // namespace

int main(int pCount, char** pArguments) {
  try {
    if (pCount != 2) throw std::invalid_argument("usage: client ADDRESS");
    run(pArguments[1]);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "client: %s\n", error.what());
    return 1;
  }
}
