// Files that were cut short, flipped, zeroed, crafted, or left by a killed recorder: no whole frame
// is lost, no wrong frame is returned, and the message says where the damage is.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <random>

#include <oxframework/oxvideo.h>
#include "recording/format.h"
#include "recordings.h"
#include "support/capture_log.h"

namespace OX::test {
namespace {

constexpr std::size_t kHeader = 128;
constexpr std::size_t kFrame = 88;

class Damage : public ::testing::Test {
 protected:
  Folder fFolder;
  const std::string fPath = fFolder / "a.oxv";
  CaptureLog fLog;
  OXVideo fVideo;
  OXImage fImage{8, 8, kRGB, false, 0, 0, 0, 0};

  /// The readable frames from the first to the last, as "0 1 2"; "?" for an unreadable one. Each
  /// must be exactly as it was written.
  std::string frames() {
    std::string text;
    for (int i = 0; i < fVideo.getNumberOfImages(); ++i) {
      const bool done = fVideo.getNextFrame(blank(fImage), false);
      const std::string frame = done ? describe(fImage) : "";
      if (done && frame.rfind("frame ", 0) != 0) return frame;
      text += (text.empty() ? "" : " ") + (done ? frame.substr(6) : "?");
    }
    return text;
  }

  std::string open(const Octets& pFile) {
    store(fPath, pFile);
    return fVideo.readVideo(fPath) ? frames() : fVideo.getLastError();
  }
};

std::string upTo(int pFrames) {
  std::string text;
  for (int i = 0; i < pFrames; ++i) text += (i ? " " : "") + std::to_string(i);
  return text;
}

TEST_F(Damage, CutAnywhereReadsToTheLastWholeFrame) {
  record(fPath, 5);
  const Octets whole = contentOf(fPath);
  for (std::size_t size = 0; size <= whole.size(); ++size) {
    SCOPED_TRACE(size);
    const std::string got =
        open({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)});
    if (size < 64) {
      EXPECT_NE(got.find(size == 0  ? ": the file is empty"
                         : size < 8 ? ": at byte 0: not an .oxv file"
                                    : ": at byte 0: the header is cut short"),
                std::string::npos)
          << got;
      continue;
    }
    const int expected =
        size < kHeader ? 0 : std::min(5, static_cast<int>((size - kHeader) / kFrame));
    EXPECT_EQ(got, upTo(expected));
    EXPECT_EQ(fVideo.hasIndex(), size == whole.size());
  }
}

TEST_F(Damage, AnyFlippedBitCostsAtMostItsOwnFrame) {
  record(fPath, 5);
  const Octets whole = contentOf(fPath);
  for (std::size_t place = 0; place < whole.size(); ++place)
    for (const int bit : {0, 7}) {
      SCOPED_TRACE("byte " + std::to_string(place) + ", bit " + std::to_string(bit));
      Octets file = whole;
      file[place] = static_cast<unsigned char>(file[place] ^ (1 << bit));
      const std::size_t hit = (place - kHeader) / kFrame;
      std::string expected = upTo(5);
      if (place >= kHeader && hit < 5) expected[2 * hit] = '?';
      ASSERT_EQ(open(file), expected);
      // Without the index, a frame with a damaged header is not counted.
      file.resize(kHeader + 5 * kFrame);
      const bool gone = (place - kHeader) % kFrame < 64;
      if (place >= kHeader && hit < 5 && gone) expected.erase(hit ? 2 * hit - 1 : 0, 2);
      if (place < file.size()) {
        ASSERT_EQ(open(file), expected);
      }
    }
}

TEST_F(Damage, FramesAfterAZeroedRangeAreRead) {
  record(fPath, 40);
  Octets file = contentOf(fPath);
  file.resize(kHeader + 40 * kFrame);
  std::fill_n(file.begin() + kHeader + 10 * kFrame + 70, 12 * kFrame, 0);
  EXPECT_EQ(open(file), "0 1 2 3 4 5 6 7 8 9 ? 23 24 25 26 27 28 29 30 31 32 33 34 35 36 37 38 39");
  ASSERT_EQ(fVideo.getDamage().size(), 1u);
  EXPECT_EQ(fVideo.getDamage()[0].fOffset, kHeader + 11 * kFrame);
  EXPECT_EQ(fVideo.getDamage()[0].fBytes, 12 * kFrame);
  EXPECT_EQ(fLog.records(3),
            "readVideo: " + fPath + ": at byte 1096: no whole frame up to the " + "next one\n");
  EXPECT_EQ(fLog.records(2),
            "getFrame: " + fPath + ": at byte 1072: the frame's pixels are damaged\n");
}

// The search starts with windows of 4096 bytes; no frame may be lost between two of them.
TEST_F(Damage, AFrameIsFoundAfterGarbageOfAnyLength) {
  record(fPath, 2);
  const Octets whole = contentOf(fPath);
  const auto second = whole.begin() + kHeader + kFrame;
  for (std::size_t length = 4000; length < 4200; ++length) {
    Octets file(whole.begin(), second);
    for (std::size_t i = 0; i < length; ++i) file.push_back("OXFR"[i % 4]);
    file.insert(file.end(), second, second + kFrame);
    ASSERT_EQ(open(file), "0 1") << length;
  }
}

TEST_F(Damage, ManyUnreadableFramesAreLoggedOnce) {
  record(fPath, 30);
  Octets file = contentOf(fPath);
  for (std::size_t i = 0; i < 30; ++i) ++file[kHeader + i * kFrame + 64];
  open(file);
  EXPECT_EQ(fLog.count(2), 1);
}

/// A crafted file: correct checksums of wrong contents.
class Crafted {
 public:
  explicit Crafted(const std::vector<streamHeader>& pStreams = {kTiny}) {
    detail::FileHeader header;
    header.fFileId = 42;
    header.fStreams = pStreams;
    fBytes = detail::encodeFileHeader(header);
  }
  Crafted& frame(std::uint32_t pSize, std::uint16_t pStream, int pFrame, std::size_t pBytes) {
    const Octets pixels = pixelsOf(pFrame, static_cast<int>(pBytes));
    detail::FrameHeader header;
    header.fPayloadBytes = pSize;
    header.fStream = pStream;
    header.fTimeStamp = stampOf(pFrame);
    header.fCameraId = static_cast<std::int8_t>(pFrame % 5 - 2);
    header.fAngles = {0.5f, float(pFrame), -1.0f, 2.0f};
    header.fPayloadChecksum = detail::checksumOf(pixels.data(), pixels.size());
    const auto bytes = detail::encodeFrameHeader(header, 42);
    return add(bytes.data(), bytes.size()).add(pixels.data(), pixels.size());
  }
  Crafted& good(int pFrame) { return frame(kTinyBytes, 0, pFrame, kTinyBytes); }
  Crafted& index(const std::vector<detail::IndexEntry>& pEntries, std::uint64_t pClaimed) {
    const std::uint64_t start = fBytes.size();
    add(detail::kIndexMarker.data(), 8);
    detail::Checksum checksum(42);
    for (const auto& entry : pEntries) {
      Octets bytes(detail::kIndexEntryBytes);
      detail::encodeIndexEntry(entry, bytes.data());
      checksum.add(bytes.data(), bytes.size());
      add(bytes.data(), bytes.size());
    }
    detail::addTrailerFields(checksum, start, pClaimed);
    const auto trailer = detail::encodeTrailer({start, pClaimed, checksum.get()});
    return add(trailer.data(), trailer.size());
  }
  Crafted& add(const unsigned char* pData, std::size_t pSize) {
    fBytes.insert(fBytes.end(), pData, pData + pSize);
    return *this;
  }
  const Octets& bytes() const { return fBytes; }

 private:
  Octets fBytes;
};

TEST_F(Damage, CraftedFilesYieldOnlyTheirValidFrames) {
  const auto entry = [](std::uint64_t pOffset, std::uint32_t pSize, std::uint16_t pStream) {
    return detail::IndexEntry{pOffset, stampOf(0), pSize, pStream, -2};
  };
  struct Case {
    const char* why;
    Octets file;
    const char* expected;
  };
  const std::vector<Case> cases{
      {"all is well", Crafted().good(0).good(1).bytes(), "0 1"},
      {"a frame without pixels", Crafted().good(0).frame(0, 0, 1, 0).good(2).bytes(), "0 2"},
      {"a stream that is not there", Crafted().good(0).frame(24, 1, 1, 24).good(2).bytes(), "0 2"},
      {"stream 65535", Crafted().frame(24, 65535, 0, 24).good(1).bytes(), "1"},
      {"a size of 4 GB", Crafted().good(0).frame(0xFFFFFFFF, 0, 1, 24).good(2).bytes(), "0"},
      {"a size beyond the end by one", Crafted().good(0).frame(25, 0, 1, 24).bytes(), "0"},
      {"a frame too small for the format", Crafted().frame(23, 0, 0, 23).good(1).bytes(), "? 1"},
      {"a frame too large for it", Crafted().frame(99, 0, 0, 99).good(1).bytes(), "? 1"},
      {"width 70000", Crafted({{70000, 2, kRGB, 8}}).good(0).bytes(), "?"},
      {"an area beyond 64 bits of bytes",
       Crafted({{2147483647, 2147483647, kRGB, 8}}).good(0).bytes(), "?"},
      {"an index that claims 2^31 frames",
       Crafted().good(0).index({entry(128, 24, 0)}, 0x80000000).bytes(), "0"},
      {"an index that claims 2^63 frames",
       Crafted().good(0).index({entry(128, 24, 0)}, std::uint64_t{1} << 63).bytes(), "0"},
      {"an index of a count that wraps to the right size",
       Crafted().good(0).index({}, std::uint64_t{1} << 61).bytes(), "0"},
      {"entries on top of each other",
       Crafted().good(0).good(1).index({entry(128, 24, 0), entry(128, 24, 0)}, 2).bytes(), "0 1"},
      {"an entry beyond the frames", Crafted().good(0).index({entry(1 << 20, 24, 0)}, 1).bytes(),
       "0"},
      {"an entry at the end of all numbers",
       Crafted().good(0).index({entry(0xFFFFFFFFFFFFFFF0, 24, 0)}, 1).bytes(), "0"},
      {"an entry of 4 GB", Crafted().good(0).index({entry(128, 0xFFFFFFFF, 0)}, 1).bytes(), "0"},
      {"an entry in the header", Crafted().good(0).index({entry(0, 24, 0)}, 1).bytes(), "0"},
      {"an entry of another stream", Crafted().good(0).index({entry(128, 24, 7)}, 1).bytes(), "0"},
      {"an entry with another size than its frame",
       Crafted().good(0).index({entry(128, 23, 0)}, 1).bytes(), "?"},
      {"an entry between two frames",
       Crafted().good(0).good(1).index({entry(140, 24, 0)}, 1).bytes(), "?"},
      {"an index right but for one frame left out",
       Crafted().good(0).good(1).index({entry(128, 24, 0)}, 1).bytes(), "0"}};
  for (const Case& row : cases) EXPECT_EQ(open(row.file), row.expected) << row.why;
}

TEST_F(Damage, AForeignFileIsRefusedWithAClearMessage) {
  record(fPath, 2);
  const Octets good = contentOf(fPath);
  const auto with = [&](std::size_t pPlace, unsigned char pByte) {
    Octets file = good;
    file[pPlace] = pByte;
    file[pPlace + 64] = pByte;
    return file;
  };
  const std::vector<std::pair<Octets, std::string>> cases{
      {{}, "the file is empty"},
      {Octets(4096), "at byte 0: not an .oxv file"},
      {with(8, 2), "at byte 8: version 2 of the format is unknown"},
      {with(24, 0), "at byte 24: 0 streams"},
      {with(27, 0xFF), "at byte 24: 4278190081 streams"},
      {with(24, 64), "at byte 12: wrong header size"},
      {with(33, 9), "at byte 0: the header's checksum is wrong"}};
  for (const auto& [file, reason] : cases) {
    fLog.clear();
    EXPECT_EQ(open(file), fPath + ": " + reason);
    EXPECT_EQ(fLog.records(2), "readVideo: " + fPath + ": " + reason + "\n");
    EXPECT_EQ(fVideo.getNumberOfImages(), 0);
  }
  const std::string fifo = fFolder / "fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  for (const std::string& path : {std::string(), fifo, fFolder / "", std::string("/dev/zero"),
                                  fFolder / "none", fPath + std::string("\0x", 2)})
    EXPECT_FALSE(fVideo.readVideo(path)) << path;
}

// A terabyte of hole must not cost the reading of a terabyte.
TEST_F(Damage, HolesAreNotRead) {
  record(fPath, 3);
  ASSERT_EQ(::truncate(fPath.c_str(), std::int64_t{1} << 40), 0);
  ASSERT_TRUE(fVideo.readVideo(fPath));
  EXPECT_EQ(frames(), "0 1 2");
}

TEST_F(Damage, AFileThatShrinksWhileOpenIsRefused) {
  record(fPath, 3);
  ASSERT_TRUE(fVideo.readVideo(fPath));
  ASSERT_EQ(::truncate(fPath.c_str(), kHeader + kFrame + 70), 0);
  EXPECT_EQ(frames(), "0 ? ?");
  EXPECT_EQ(fLog.count(2), 1);
}

TEST_F(Damage, AnUnclosedRecordingKeepsItsFrames) {
  {
    OXVideo abandoned;
    ASSERT_TRUE(abandoned.recordVideo(fPath, 0, {kTiny}));
    for (int i = 0; i < 4; ++i) ASSERT_TRUE(append(abandoned, i));
    ASSERT_TRUE(fVideo.readVideo(fPath)) << "a recording may be looked at while it grows";
    EXPECT_EQ(frames(), "0 1 2 3");
  }
  ASSERT_TRUE(fVideo.readVideo(fPath));
  EXPECT_FALSE(fVideo.hasIndex());
  EXPECT_EQ(frames(), "0 1 2 3");
  EXPECT_TRUE(fVideo.getDamage().empty()) << "without index but whole";
}

/// Records until it is killed, and reports each frame that was written.
[[noreturn]] void recordForEver(const std::string& pPath, int pTell) {
  OXVideo video;
  bool good = video.recordVideo(pPath, 0, {kTiny});
  for (int i = 0; good; ++i) good = append(video, i) && ::write(pTell, "x", 1) == 1;
  ::_exit(1);
}

TEST_F(Damage, AKilledRecorderLosesNoFrameThatItWrote) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int run = 0; run < 200; ++run) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const pid_t child = ::fork();
    if (child == 0) recordForEver(fPath, ends[1]);
    ASSERT_GT(child, 0);
    ::close(ends[1]);
    const int wanted = static_cast<int>(random() % 60);
    char told = 0;
    for (int i = 0; i < wanted; ++i) ASSERT_EQ(::read(ends[0], &told, 1), 1);
    // Somewhere between two system calls or in the middle of one.
    for (unsigned spin = random() % 20000; spin > 0; --spin) told = static_cast<char>(told + 1);
    ::kill(child, SIGKILL);
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    int written = wanted;
    while (::read(ends[0], &told, 1) == 1) ++written;
    ::close(ends[0]);
    if (written == 0) continue;
    ASSERT_TRUE(fVideo.readVideo(fPath)) << fVideo.getLastError();
    const int count = fVideo.getNumberOfImages();
    ASSERT_GE(count, written);
    ASSERT_LE(count, written + 1);
    ASSERT_EQ(frames(), upTo(count));
  }
}

}  // namespace
}  // namespace OX::test
