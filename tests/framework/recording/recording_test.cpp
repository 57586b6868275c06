// Recording and reading: frames are read as they were written, from any position, and a failed
// write leaves a whole file.
#include <oxframework/oxvideo.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <xxhash.h>

#include <cstring>
#include <random>

#include "recordings.h"
#include "support/allocations.h"
#include "support/capture_log.h"

namespace OX::test {
namespace {

class Recording : public ::testing::Test {
 protected:
  Folder fFolder;
  const std::string fPath = fFolder / "a.oxv";
  CaptureLog fLog;
  OXVideo fVideo;
  OXImage fImage{8, 8, kRGB, false, 0, 0, 0, 0};

  std::string get(int pIndex, int pStream = 0) {
    const bool done = fVideo.getFrame(blank(fImage), pIndex, pStream, false);
    return (done ? "" : "no ") + describe(fImage);
  }
  std::string next() {
    const bool done = fVideo.getNextFrame(blank(fImage), false);
    return (done ? "" : "no ") + describe(fImage);
  }
  std::string preceding() {
    const bool done = fVideo.getPrecedingFrame(blank(fImage), false);
    return (done ? "" : "no ") + describe(fImage);
  }
};

TEST_F(Recording, ReadsEveryFrameInEveryOrder) {
  record(fPath, 12);
  ASSERT_TRUE(fVideo.readVideo(fPath)) << fVideo.getLastError();
  EXPECT_TRUE(fVideo.hasIndex());
  EXPECT_EQ(fVideo.getNumberOfImages(), 12);

  // The reader against the simplest model of a position.
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  int position = -1;
  const auto at = [&](int pIndex) {
    if (pIndex < 0 || pIndex >= 12) return std::string("no untouched");
    position = pIndex;
    return "frame " + std::to_string(pIndex);
  };
  for (int i = 0; i < 2000; ++i) {
    const int choice = static_cast<int>(random() % 3);
    if (choice == 0) {
      ASSERT_EQ(next(), at(position + 1));
    } else if (choice == 1) {
      ASSERT_EQ(preceding(), at(position - 1));
    } else {
      const int index = static_cast<int>(random() % 16) - 2;
      ASSERT_EQ(get(index), at(index));
      ASSERT_EQ(fVideo.getTimeStamp(index, 0),
                index >= 0 && index < 12 ? std::optional(stampOf(index)) : std::nullopt);
    }
    ASSERT_EQ(fVideo.getCurrentImage(), position);
  }
}

TEST_F(Recording, PutsFramesIntoStreamsInTurn) {
  const streamHeader other{4, 2, kBGR, 8};
  record(fPath, 8, {kTiny, other, kTiny});
  ASSERT_TRUE(fVideo.readVideo(fPath));
  ASSERT_EQ(fVideo.getNumberOfStreams(), 3);
  EXPECT_EQ(fVideo.getNumberOfImages(), 3) << "stream 0 has the frames 0, 3 and 6";
  EXPECT_EQ(fVideo.getStream(2).fNumberOfImages, 2) << "the third turn ends before stream 2";
  EXPECT_EQ(next(), "frame 0");
  EXPECT_EQ(get(1, 2), "frame 5");
  EXPECT_EQ(fVideo.getNumberOfImages(), 2) << "the reader stays in stream 2";
  EXPECT_EQ(next(), "no untouched");
  EXPECT_EQ(preceding(), "frame 2");
  EXPECT_EQ(get(0, 1), "frame 1 with another format") << "the second stream is BGR";
  EXPECT_EQ(fImage.fColorSpace, kBGR);
  EXPECT_EQ(get(0, 3), "no untouched");
  EXPECT_EQ(get(0, -1), "no untouched");
}

TEST_F(Recording, DescribesItsStreams) {
  struct Case {
    streamHeader header;
    int resolution, colorSpace;
    std::int64_t frameBytes;
    const char* why;
  };
  const std::vector<Case> cases{
      {{640, 480, kYUV422, 8}, kVGA, kYUV422, 614400, "a camera's own"},
      {{1280, 960, kRGB, 8}, k4VGA, kRGB, 3686400, "the largest"},
      {{640, 481, kYuv, 8}, -1, kYuv, 307840, "a size without a resolution"},
      {{640, 480, 265, 8}, kVGA, 255, 921600, "in eight bits 265 would be 9"},
      {{640, 480, -1, 8}, kVGA, 255, 921600, "no colour space"},
      {{640, 480, 255, 8}, kVGA, 255, 921600, "the last one that is none"},
      {{70000, 70000, kRGB, 8}, -1, kRGB, 0, "more bytes than an int counts"},
      {{-1, -1, kRGB, 8}, -1, kRGB, 0, "an empty image"},
      {{640, 480, kRGB, 16}, kVGA, kRGB, 0, "samples of another depth"}};
  std::vector<streamHeader> headers;
  for (const Case& row : cases) headers.push_back(row.header);
  record(fPath, 0, headers);
  ASSERT_TRUE(fVideo.readVideo(fPath));
  for (int i = 0; i < static_cast<int>(cases.size()); ++i) {
    const Case& row = cases[static_cast<std::size_t>(i)];
    SCOPED_TRACE(row.why);
    const OXVideoStream stream = fVideo.getStream(i);
    EXPECT_EQ(stream.fResolution, row.resolution);
    EXPECT_EQ(stream.fColorSpace, row.colorSpace);
    EXPECT_EQ(stream.fFrameBytes, row.frameBytes);
    EXPECT_EQ(stream.fWidth, row.header.width);
    EXPECT_EQ(stream.fNumberOfImages, 0);
  }
  EXPECT_EQ(fVideo.getStream(9).fColorSpace, 255);
  EXPECT_EQ(fVideo.getStream(-1).fResolution, -1);
}

TEST_F(Recording, LeavesAnImageThatIsTooSmallUnchanged) {
  record(fPath, 3);
  ASSERT_TRUE(fVideo.readVideo(fPath));
  EXPECT_EQ(next(), "frame 0");
  OXImage small(1, kTinyBytes - 1, kYuv, false, 0, 0, 0, 0);
  EXPECT_FALSE(fVideo.getNextFrame(blank(small), false));
  EXPECT_EQ(describe(small), "untouched");
  EXPECT_EQ(small.fData[0], 0xEE);
  EXPECT_EQ(fVideo.getLastError(),
            fPath + ": at byte 216: a frame of 24 bytes; the image has room for 23");
  OXImage none(4, 2, kRGB, true, 0, 0, 0, 0);
  EXPECT_FALSE(fVideo.getNextFrame(none, false));
  EXPECT_EQ(next(), "frame 1") << "an image without room does not lose the frame";
}

TEST_F(Recording, ReadsWithoutAllocating) {
  record(fPath, 50);
  ASSERT_TRUE(fVideo.readVideo(fPath));
  ASSERT_TRUE(fVideo.getFrame(fImage, 0, 0, true));
  const long before = allocations();
  bool good = true;
  for (int i = 1; i < 50; ++i) good = good && fVideo.getNextFrame(fImage, false);
  for (int i = 0; i < 40; ++i) good = good && fVideo.getPrecedingFrame(fImage, false);
  EXPECT_EQ(allocations() - before, 0);
  EXPECT_TRUE(good);
}

TEST_F(Recording, KeepsFramesThatDoNotFitTheirStream) {
  ASSERT_TRUE(fVideo.recordVideo(fPath, 0, {kTiny}));
  EXPECT_TRUE(append(fVideo, 0));
  EXPECT_TRUE(append(fVideo, 1, kTinyBytes * 4)) << "the camera was raised meanwhile";
  EXPECT_TRUE(append(fVideo, 2));
  fVideo.closeVideo();
  ASSERT_TRUE(fVideo.readVideo(fPath));
  EXPECT_EQ(next(), "frame 0");
  EXPECT_EQ(next(), "no untouched");
  EXPECT_EQ(next(), "frame 2") << "the reader continues after it";
  Octets bytes;
  ASSERT_TRUE(fVideo.readFrameBytes(1, 0, bytes));
  EXPECT_EQ(bytes, pixelsOf(1, kTinyBytes * 4));
}

TEST_F(Recording, IsHarmlessWhenNothingIsOpen) {
  EXPECT_FALSE(append(fVideo, 0));
  fVideo.closeVideo();
  EXPECT_EQ(next() + ", " + preceding() + ", " + get(0),
            "no untouched, no untouched, no untouched");
  EXPECT_EQ(fVideo.getNumberOfImages() + fVideo.getNumberOfStreams(), 0);
  ASSERT_TRUE(fVideo.recordVideo(fPath, 0, {kTiny}));
  EXPECT_FALSE(fVideo.write(nullptr, kTinyBytes, 0, 0, 0, 0, 0, 0));
  const unsigned char byte = 1;
  EXPECT_FALSE(fVideo.write(&byte, 0, 0, 0, 0, 0, 0, 0));
  EXPECT_FALSE(fVideo.write(&byte, -1, 0, 0, 0, 0, 0, 0));
  EXPECT_TRUE(append(fVideo, 0)) << "a refused frame ends nothing";
  EXPECT_EQ(next(), "no untouched") << "a recording is not read";
  EXPECT_EQ(fLog.all().size(), 0u);
}

TEST_F(Recording, RefusesPathsThatCannotHoldARecording) {
  const std::string text = fFolder / "text";
  store(text, {'h', 'e', 'l', 'l', 'o', ' ', 'o', 'x', 'v'});
  const std::string shorter = fFolder / "short";
  store(shorter, {0x89, 'O', 'X'});
  const std::string fifo = fFolder / "fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const std::string link = fFolder / "link.oxv";
  record(fPath, 1);
  std::filesystem::create_symlink(fPath, link);
  const std::string busy = fFolder / "busy.oxv";
  OXVideo other;
  ASSERT_TRUE(other.recordVideo(busy, 0, {kTiny}));

  const std::vector<std::pair<std::string, std::string>> cases{
      {"", ": the name is empty"},
      {fFolder / "", "Is a directory"},
      {fFolder / "none/a.oxv", "No such file or directory"},
      {text, "exists and is not an .oxv file; it was left unchanged"},
      {shorter, "exists and is not an .oxv file; it was left unchanged"},
      {fifo, "not a regular file"},
      {link, "Too many levels of symbolic links"},
      {"/dev/null", "not a regular file"},
      {busy, "another recorder is writing this file"},
      {fPath + std::string("\0.txt", 5), "the name contains a zero byte"},
      {fFolder / std::string(5000, 'x'), "File name too long"}};
  for (const auto& [path, reason] : cases) {
    SCOPED_TRACE(path);
    fLog.clear();
    EXPECT_FALSE(fVideo.recordVideo(path, 0, {kTiny}));
    EXPECT_NE(fVideo.getLastError().find(reason), std::string::npos) << fVideo.getLastError();
    EXPECT_EQ(fLog.records(2), "recordVideo: " + fVideo.getLastError() + "\n");
    EXPECT_FALSE(append(fVideo, 0));
    EXPECT_EQ(fLog.all().size(), 1u) << "one record for the whole recording";
  }
  EXPECT_EQ(contentOf(text).size(), 9u);
  EXPECT_EQ(contentOf(shorter).size(), 3u);
  for (const auto& streams : {std::vector<streamHeader>{}, std::vector<streamHeader>(65, kTiny)})
    EXPECT_FALSE(fVideo.recordVideo(fFolder / "new.oxv", 0, streams));
  EXPECT_TRUE(fVideo.readVideo(link)) << "reading may follow a link: " << fVideo.getLastError();
  EXPECT_TRUE(fVideo.recordVideo(fPath, 0, {kTiny})) << "an .oxv file is replaced";
}

/// A limit on the size of files, which acts as a full disk does. The kernel also sends a signal
/// that by default ends the process.
class FullDisk {
 public:
  explicit FullDisk(rlim_t pBytes) {
    getrlimit(RLIMIT_FSIZE, &fBefore);
    const rlimit limit{pBytes, fBefore.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FullDisk() { setrlimit(RLIMIT_FSIZE, &fBefore); }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  rlimit fBefore{};
};

// The file's 128 bytes of header and 88 a frame, with room for each number of bytes in turn.
TEST_F(Recording, SurvivesAFullDiskAtEveryByte) {
  for (rlim_t room = 0; room < 128 + 3 * 88; ++room) {
    SCOPED_TRACE(room);
    std::filesystem::remove(fPath);
    fLog.clear();
    const bool closeInTime = room % 2 == 0;
    const auto frames = room < 128 ? 0 : (room - 128) / 88;
    rlim_t written = 0;
    {
      const FullDisk disk(room);
      EXPECT_EQ(fVideo.recordVideo(fPath, 0, {kTiny}), room >= 128);
      for (int i = 0; i < 6; ++i) written += append(fVideo, i) ? 1 : 0;
      EXPECT_EQ(written, frames);
      EXPECT_EQ(std::filesystem::file_size(fPath), room < 128 ? 0 : 128 + 88 * frames)
          << "nothing torn stays, should this process end now";
      if (closeInTime) fVideo.closeVideo();
    }
    fVideo.closeVideo();
    EXPECT_EQ(fLog.all().size(), 1u) << fLog.records(2) << fLog.records(3);
    EXPECT_NE(fLog.records(2).find(fPath), std::string::npos);
    EXPECT_NE(fLog.records(2).find("File too large"), std::string::npos) << fLog.records(2);
    if (room < 128) continue;
    ASSERT_TRUE(fVideo.readVideo(fPath)) << fVideo.getLastError();
    EXPECT_TRUE(closeInTime || fVideo.hasIndex()) << "the index goes out when there is room again";
    ASSERT_EQ(fVideo.getNumberOfImages(), static_cast<int>(frames));
    for (rlim_t i = 0; i < frames; ++i) ASSERT_EQ(next(), "frame " + std::to_string(i));
  }
}

// Of the writer and of the reader, one after the other; the log's may be among them.
TEST_F(Recording, NeverThrowsWhicheverAllocationFails) {
  const std::vector<streamHeader> streams{kTiny};
  const Octets pixels = pixelsOf(0, kTinyBytes);
  int written = 0;
  for (long i = 1, happened = 1; happened; ++i) {
    SCOPED_TRACE(i);
    std::filesystem::remove(fPath);
    written = 0;
    {
      const FailingAllocation failure(i);
      fVideo.recordVideo(fPath, 0, streams);
      for (int frame = 0; frame < 6; ++frame)
        written += fVideo.write(pixels.data(), kTinyBytes, 0, 0, 0, 0, 0, 0) ? 1 : 0;
      fVideo.closeVideo();
      happened = failure.hasHappened();
    }
    if (written == 0) continue;
    ASSERT_TRUE(fVideo.readVideo(fPath)) << fVideo.getLastError();
    EXPECT_EQ(fVideo.getNumberOfImages(), written) << "what write() confirmed, and no more";
  }
  EXPECT_EQ(written, 6);

  bool done = false;
  for (long i = 1, happened = 1; happened; ++i) {
    SCOPED_TRACE(i);
    Octets bytes;
    const FailingAllocation failure(i);
    done = fVideo.readVideo(fPath) && fVideo.readFrameBytes(5, 0, bytes) && bytes == pixels;
    happened = failure.hasHappened();
  }
  EXPECT_TRUE(done);
}

template <typename T>
T at(const Octets& pBytes, std::size_t pOffset) {
  T value{};
  std::memcpy(&value, &pBytes.at(pOffset), sizeof(T));
  return value;
}

// The bytes as docs/oxv-format.md describes them.
TEST_F(Recording, WritesTheDocumentedLayout) {
  ASSERT_TRUE(fVideo.recordVideo(fPath, 77, {kTiny}));
  ASSERT_TRUE(append(fVideo, 3));
  fVideo.closeVideo();
  const Octets file = contentOf(fPath);
  ASSERT_EQ(file.size(), 128u + 64 + 24 + 8 + 24 + 32);
  EXPECT_TRUE(std::equal(&file[0], &file[64], &file[64])) << "the header's second copy";
  EXPECT_EQ(at<std::uint32_t>(file, 8), 1u) << "version";
  EXPECT_EQ(at<std::uint32_t>(file, 12), 64u) << "size of the header";
  const auto id = at<std::uint64_t>(file, 16);
  EXPECT_EQ(at<std::uint32_t>(file, 24), 1u) << "streams";
  EXPECT_EQ(at<std::uint32_t>(file, 28), 77u) << "period";
  EXPECT_EQ(at<int>(file, 32), 4) << "width";
  EXPECT_EQ(at<int>(file, 36), 2) << "height";
  EXPECT_EQ(at<int>(file, 40), 11) << "colour space";
  EXPECT_EQ(at<int>(file, 44), 8) << "bits of a sample";
  EXPECT_EQ(at<std::uint64_t>(file, 56), XXH3_64bits(&file[0], 56));

  EXPECT_EQ(std::string(&file[128], &file[132]), "OXFR");
  EXPECT_EQ(at<std::uint32_t>(file, 132), 24u) << "bytes of pixels";
  EXPECT_EQ(at<std::uint32_t>(file, 136), 0u) << "sequence";
  EXPECT_EQ(at<std::uint16_t>(file, 140), 0u) << "stream";
  EXPECT_EQ(at<std::int8_t>(file, 142), 1) << "camera";
  EXPECT_EQ(at<std::int64_t>(file, 144), stampOf(3));
  EXPECT_EQ(at<float>(file, 152), 0.5f);
  EXPECT_EQ(at<float>(file, 156), 3.0f);
  EXPECT_EQ(at<float>(file, 160), -1.0f);
  EXPECT_EQ(at<float>(file, 164), 2.0f);
  EXPECT_EQ(at<std::uint64_t>(file, 176), XXH3_64bits(&file[192], 24));
  EXPECT_EQ(at<std::uint64_t>(file, 184), XXH3_64bits_withSeed(&file[128], 56, id));
  EXPECT_EQ(Octets(&file[192], &file[216]), pixelsOf(3, 24));

  EXPECT_EQ(std::string(&file[216], &file[224]), std::string("OXINDEX\0", 8));
  EXPECT_EQ(at<std::uint64_t>(file, 224), 128u) << "where the frame begins";
  EXPECT_EQ(at<std::int64_t>(file, 232), stampOf(3));
  EXPECT_EQ(at<std::uint32_t>(file, 240), 24u);
  EXPECT_EQ(at<std::uint16_t>(file, 244), 0u);
  EXPECT_EQ(at<std::int8_t>(file, 246), 1);
  EXPECT_EQ(at<std::uint64_t>(file, 248), 216u) << "where the index begins";
  EXPECT_EQ(at<std::uint64_t>(file, 256), 1u) << "its entries";
  EXPECT_EQ(at<std::uint64_t>(file, 264), XXH3_64bits_withSeed(&file[224], 40, id));
}

}  // namespace
}  // namespace OX::test
