// Several streams in one reply, requested over connections.
#include <thread>

#include "service.h"

namespace OX::test {
namespace {

/// The pixels of image pIndex: the binary at the end holds those of all images, one after another.
std::string pixelsOf(const OXValue& pReply, int pIndex) {
  const OXValue& joined = pReply[pReply.getSize() - 1];
  int begin = 0;
  int size = 0;
  for (int i = 0; i <= pIndex; ++i) {
    begin += size;
    size = pReply[i][0].toInt() * pReply[i][1].toInt() * pReply[i][2].toInt();
  }
  if (begin + size > joined.getSize()) return "out of the reply";
  return {static_cast<const char*>(joined.GetBinary()) + begin, static_cast<std::size_t>(size)};
}

std::string pixelsOf(const OXValue& pReply) {
  return {static_cast<const char*>(pReply[6].GetBinary()),
          static_cast<std::size_t>(pReply[6].getSize())};
}

class Streams : public testing::Test {
 protected:
  /// A frame of its own on each camera, in the camera's resolution.
  void push() {
    ASSERT_TRUE(fService.call("putImage", 0, 640, 480, patternFrame(640, 480, 0)).toBool());
    ASSERT_TRUE(fService.call("putImage", 1, 320, 240, patternFrame(320, 240, 77)).toBool());
  }
  std::string subscribe(const std::string& pName, std::vector<int> pCameras,
                        std::vector<int> pResolutions, std::vector<int> pColorSpaces) {
    return fService.call("subscribeCameras", pName, pCameras, pResolutions, pColorSpaces, 30)
        .toString();
  }

  CaptureLog fLog;
  Service fService;
};

TEST_F(Streams, OneReplyHoldsTheImageOfEachCameraInItsOwnFormat) {
  const std::string id = subscribe("m", {1, 0}, {kQVGA, kVGA}, {kRGB, kYuv});
  fService.call("subscribeCamera", "one", 1, kQVGA, kRGB, 30);
  fService.call("subscribeCamera", "zero", 0, kVGA, kYuv, 30);
  push();
  const OXValue reply = fService.call("getImagesRemote", id);
  ASSERT_EQ(reply.getSize(), 3);
  EXPECT_EQ(reply[2].getSize(), 320 * 240 * 3 + 640 * 480);
  const OXValue one = fService.call("getImageRemote", "one");
  const OXValue zero = fService.call("getImageRemote", "zero");
  ASSERT_EQ(one.getSize(), 12);
  ASSERT_EQ(zero.getSize(), 12);
  EXPECT_TRUE(pixelsOf(reply, 0) == pixelsOf(one));
  EXPECT_TRUE(pixelsOf(reply, 1) == pixelsOf(zero));
  for (int field : {0, 1, 2, 3, 4, 5, 7}) {
    EXPECT_EQ(reply[0][field].toInt(), one[field].toInt()) << field;
    EXPECT_EQ(reply[1][field].toInt(), zero[field].toInt()) << field;
  }
  EXPECT_EQ(reply[0][6], OXValue(OXValue::Array()));
}

TEST_F(Streams, ConcurrentRepliesNeverMixTheirPixels) {
  constexpr int kCalls = 50;
  const std::string ids[] = {subscribe("a", {1, 0}, {kQVGA, kVGA}, {kRGB, kYuv}),
                             subscribe("b", {0, 1}, {kVGA, kQQVGA}, {kYuv, kYUV422})};
  push();
  std::string expected[2];
  for (int i = 0; i < 2; ++i) {
    const OXValue reply = fService.call("getImagesRemote", ids[i]);
    ASSERT_EQ(reply.getSize(), 3);
    expected[i] = pixelsOf(reply, 0) + pixelsOf(reply, 1);
  }
  ASSERT_TRUE(expected[0] != expected[1]);
  std::atomic<int> wrong{0};
  std::vector<std::thread> clients;
  for (int i = 0; i < 2; ++i)
    clients.emplace_back([&, i] {
      const auto client = fService.connect();
      for (int call = 0; call < kCalls; ++call) {
        const OXValue reply =
            client->call("OXVideoDevice", "getImagesRemote", OXValue::array(ids[i]));
        if (reply.getSize() != 3 || pixelsOf(reply, 0) + pixelsOf(reply, 1) != expected[i]) ++wrong;
      }
    });
  for (std::thread& client : clients) client.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(DeviceProbe(*fService.simulator).complaints(), "");
}

}  // namespace
}  // namespace OX::test
