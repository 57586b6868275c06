// Sources that are no plain file: pictures, pipes, filter graphs, the network, and what a user is
// told when there is nothing to read.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <future>
#include <thread>

#include "media/framesource.h"
#include "media/liveframes.h"
#include "media/picture.h"
#include "scratch_folder.h"
#include "terminal/exitstatus.h"
#include "video_file.h"

namespace OX::test {
namespace {

using namespace cli;
using ::testing::HasSubstr;

constexpr FrameSize kTarget{320, 240};
constexpr const char* kReds = "0 20 40 60 80 100 120 140 160 180 ";

class Sources : public ::testing::Test {
 protected:
  void addPicture(const std::string& pName, int pRed, int pWidth = 4, int pHeight = 3) {
    Picture picture{pWidth, pHeight, {}};
    for (int i = 0; i < pWidth * pHeight; ++i)
      for (const int value : {pRed, 0, 0}) picture.rgb.push_back(static_cast<unsigned char>(value));
    std::ofstream(fFolder.file(pName), std::ios::binary) << encodePng(picture);
  }

  /// Frame i is red 20 * i, over and over; in a file and as its bytes.
  std::string film(int pFrames = 10) {
    VideoFile video;
    video.frames = pFrames;
    video.color = [](int pFrame, double, double) { return Rgb{20 * (pFrame % 10), 0, 0}; };
    EXPECT_TRUE(writeVideo(fFolder.file("steps.mkv"), video));
    std::ifstream file(fFolder.file("steps.mkv"), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  static int middle(const std::vector<unsigned char>& pRgb) { return pRgb[(120 * 320 + 160) * 3]; }

  /// The reds of all frames, in order, or the error's text.
  std::string read(const std::string& pSource, const MediaOptions& pOptions = {}) {
    try {
      OXMediaReader reader(pSource, kTarget, pOptions);
      OXFrameScaler scaler;
      std::vector<unsigned char> rgb;
      std::string all;
      while (const AVFrame* frame = reader.next()) {
        scaler.render(*frame, reader.orientation(), kTarget, Fit::kStretch, rgb);
        all += std::to_string(middle(rgb)) + " ";
      }
      fDamaged = reader.damagedFrames();
      fRemark = reader.remark();
      return all;
    } catch (const std::runtime_error& error) {
      return error.what();
    }
  }

  static MediaOptions impatient() {
    MediaOptions options;
    options.longestSilence = std::chrono::milliseconds(300);
    return options;
  }

  ScratchFolder fFolder;
  std::int64_t fDamaged = 0;
  std::string fRemark;
};

/// Sends bytes to the first client, then closes the connection, or holds it until the end.
class TcpServer {
 public:
  TcpServer(const std::string& pBytes, bool pHolds) : fSocket(::socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const general = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(::bind(fSocket, general, size), 0);
    EXPECT_EQ(::listen(fSocket, 1), 0);
    EXPECT_EQ(::getsockname(fSocket, general, &size), 0);
    url = "tcp://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    fThread = std::thread([this, pBytes, pHolds] {
      const int client = ::accept(fSocket, nullptr, nullptr);
      for (std::size_t sent = 0; sent < pBytes.size();) {
        const ssize_t now =
            ::send(client, pBytes.data() + sent, pBytes.size() - sent, MSG_NOSIGNAL);
        if (now <= 0) break;
        sent += static_cast<std::size_t>(now);
      }
      if (pHolds) fEnd.get_future().wait();
      ::close(client);
    });
  }
  ~TcpServer() {
    ::shutdown(fSocket, SHUT_RDWR);
    fEnd.set_value();
    fThread.join();
    ::close(fSocket);
  }

  std::string url;

 private:
  const int fSocket;
  std::promise<void> fEnd;
  std::thread fThread;
};

TEST_F(Sources, PicturesComeInTheOrderOfTheirNumbers) {
  for (const int number : {1, 2, 9, 10, 11})
    addPicture("f" + std::to_string(number) + ".png", 20 * number);
  std::ofstream(fFolder.file("notes.txt")) << "no picture";
  std::filesystem::create_directory(fFolder.file("g5.png"));
  const struct {
    const char* pattern;
    const char* reds;
    const char* why;
  } rows[] = {
      {"", "20 40 180 200 220 ", "a folder: its pictures"},
      {"f1*.png", "20 200 220 ", "a pattern"},
      {"f?.png", "20 40 180 ", "one character"},
      {"f%d.png", "20 40 180 200 220 ", "any number, gaps or not"},
      {"f%02d.png", "200 220 ", "two digits at least"},
      {"f[29].png", "40 180 ", "one of two"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(read(fFolder.file(row.pattern)), row.reds) << row.why;
    EXPECT_EQ(fDamaged, 0) << row.why;
  }
  MediaOptions slow;
  slow.pictureFps = 2;
  OXFrameSource source(fFolder.file(""), kTarget, false, slow);
  EXPECT_FALSE(source.isEndless());
  EXPECT_EQ(source.duration(), 2.5);
  EXPECT_TRUE(source.advanceTo(0.9));
  std::vector<unsigned char> rgb;
  source.render(kTarget, Fit::kStretch, rgb);
  EXPECT_EQ(middle(rgb), 40);
  EXPECT_EQ(source.frameNumber(), 2);
  EXPECT_FALSE(source.advanceTo(2.6));
  EXPECT_EQ(source.frameNumber(), 5) << "all of them";
}

TEST_F(Sources, WhatIsWrongWithPicturesIsSaid) {
  addPicture("a.png", 20);
  addPicture("b.png", 40, 8, 6);
  EXPECT_EQ(read(fFolder.file("")), "20 40 ");
  EXPECT_THAT(fRemark, HasSubstr("b.png is 8x6, the first one 4x3"));
  std::ofstream(fFolder.file("a1.png")) << "no picture";
  EXPECT_EQ(read(fFolder.file("")), "20 40 ") << "it costs only itself";
  EXPECT_EQ(fDamaged, 1);
  EXPECT_THAT(fRemark, HasSubstr("a1.png"));
}

TEST_F(Sources, APipeMayEndOrStall) {
  const std::string bytes = film();
  const std::string pipe = fFolder.file("pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  const auto readFromWriter = [&](const std::string& pBytes) {
    std::thread writer([&] { std::ofstream(pipe, std::ios::binary) << pBytes; });
    const std::string result = read(pipe);
    writer.join();
    return result;
  };
  EXPECT_EQ(readFromWriter(bytes), kReds);
  EXPECT_THAT(readFromWriter(""), HasSubstr("it ended before anything came"));
  EXPECT_EQ(read(pipe, impatient()), "no data from " + pipe + " for 0.3 s") << "nobody writes";
}

TEST_F(Sources, AConnectionMayEndOrStall) {
  const std::string bytes = film();
  {
    TcpServer server(bytes, false);
    EXPECT_EQ(read(server.url), kReds);
  }
  TcpServer server(bytes.substr(0, bytes.size() / 2), true);
  EXPECT_EQ(read(server.url, impatient()), "no data from " + server.url + " for 0.3 s");
}

// The reader here is a file, which comes faster than any camera.
TEST_F(Sources, OfALiveSourceTheNewestFrameIsTaken) {
  film();
  {
    OXMediaReader reader(fFolder.file("steps.mkv"), kTarget);
    OXLiveFrames frames(reader);
    std::int64_t last = 0;
    while (!frames.isOver()) {
      const OXLiveFrames::Frame frame = frames.take();
      if (!frame.frame) continue;
      EXPECT_GT(frame.number, last);
      last = frame.number;
    }
    EXPECT_EQ(last, 10) << "each is counted, taken or not";
  }
  // Enough for the library to know the format before the connection stalls.
  const std::string bytes = film(80);
  TcpServer stalls(bytes.substr(0, bytes.size() * 3 / 4), true);
  OXMediaReader reader(stalls.url, kTarget);
  auto live = std::make_unique<OXLiveFrames>(reader);
  live->waitForFirst();
  EXPECT_TRUE(live->take().frame);
  const auto began = std::chrono::steady_clock::now();
  live.reset();
  EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(5))
      << "its end waited for the source";
}

TEST_F(Sources, AFilterGraphMayHaveAnEndOrNone) {
  EXPECT_EQ(read("lavfi:color=red:size=16x16:rate=5:duration=0.6,format=rgb24"), "255 255 255 ");
  OXFrameSource graph("lavfi:testsrc2=size=160x120:rate=10", kTarget, false);
  EXPECT_TRUE(graph.isEndless());
  EXPECT_TRUE(graph.advanceTo(3.05));
  EXPECT_EQ(graph.frameNumber(), 31);
  MediaOptions named;
  named.format = "lavfi";
  OXFrameSource color("color=red:size=16x16", kTarget, false, named);
  EXPECT_TRUE(color.advanceTo(0));
}

TEST_F(Sources, WhatCanNotBeReadIsNamedWithItsReason) {
  std::filesystem::create_directory(fFolder.file("empty"));
  std::ofstream(fFolder.file("100%d.mkv")) << "junk";
  const struct {
    std::string source;
    const char* format;
    std::vector<const char*> said;
  } rows[] = {
      {"/dev/video99",
       "",
       {"can't open camera /dev/video99: ", "No such file", "this machine has "}},
      {"/dev/video99", "v4l2", {"can't open camera"}},
      {"lavfi:nosuch=3", "", {"No such filter: 'nosuch'", "looks like lavfi:"}},
      {"lavfi:", "", {"can't read lavfi:"}},
      {fFolder.file("empty"), "", {"has no pictures (.png "}},
      {fFolder.file("empty/*.png"), "", {"no file matches "}},
      {fFolder.file("none/*.png"), "", {"can't read the folder ", "No such file"}},
      {fFolder.file("100%d.mkv"), "", {"100%d.mkv: ", "Invalid data"}},
      {"tcp://127.0.0.1:1", "", {"can't read tcp://127.0.0.1:1: ", "Connection refused"}},
      {"rtsp://127.0.0.1:1/a", "", {"can't read rtsp://127.0.0.1:1/a: ", "Connection refused"}},
      {"nosuch://a", "", {"can't read nosuch://a: ", "Protocol not found"}},
      {"a.mkv", "quark", {"unknown input format quark"}},
  };
  for (const auto& row : rows) {
    MediaOptions options;
    options.format = row.format;
    const std::string said = read(row.source, options);
    for (const char* part : row.said) EXPECT_THAT(said, HasSubstr(part)) << row.source;
  }
  for (const char* once : {"-", "rtsp://127.0.0.1:1/a"})
    EXPECT_THROW(OXFrameSource(once, kTarget, true), OXUsageError) << "can't be read again";
}

}  // namespace
}  // namespace OX::test
