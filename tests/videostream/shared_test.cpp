// Pixels through shared memory: what clients get, what they may not do, and that nothing is left.
#include <fcntl.h>
#include <sys/mman.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>

#include "stream_service.h"
#include "support/device_probe.h"
#include "support/raw_client.h"

namespace OX::test {
namespace {

constexpr int kSlotBytes = 1280 * 960 * 3;

int countMaps() {
  std::ifstream maps("/proc/self/maps");
  int count = 0;
  for (std::string line; std::getline(maps, line);)
    count += line.find("oxvideo-stream") != std::string::npos ? 1 : 0;
  return count;
}

int countDescriptors() {
  int count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
    ++count;
  return count;
}

/// What openShared answered with, mapped as a client does.
class Mapping {
 public:
  Mapping(StreamClient& pClient, const std::string& pMethod, const OXValue& pArguments)
      : fAnswer(pClient.broker()->call("OXVideoStream", pMethod, pArguments, fDescriptor)) {
    fData = static_cast<const unsigned char*>(
        ::mmap(nullptr, size(), PROT_READ, MAP_SHARED, fDescriptor.number(), 0));
  }
  ~Mapping() { ::munmap(const_cast<unsigned char*>(fData), size()); }
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;

  std::string id() const { return fAnswer[0].toString(); }
  std::size_t size() const { return static_cast<std::size_t>(fAnswer[1].toInt()); }
  const OXValue& answer() const { return fAnswer; }
  int descriptor() const { return fDescriptor.number(); }
  /// The pixels at [slot, offset, bytes, generation].
  const unsigned char* pixels(const OXValue& pPlace) const { return fData + pPlace[1].toInt(); }
  /// Of the pixels of an image, -1 for none.
  int shade(const OXValue& pImage) const {
    return pImage.isArray() ? shadeOf(static_cast<const void*>(pixels(pImage[6]))) : -1;
  }

 private:
  OXDescriptor fDescriptor;
  const OXValue fAnswer;
  const unsigned char* fData = nullptr;
};

class Sharing : public StreamService {
 protected:
  static OXValue wish(const std::string& pName, int pSlots, int pResolution = kQQVGA,
                      int pColorSpace = kRGB) {
    return OXValue::array(pName, 0, pResolution, pColorSpace, 0, pSlots);
  }
  static void release(StreamClient& pClient, const std::string& pId, const OXValue& pPlace) {
    pClient.call("release", pId, pPlace[0].toInt(), pPlace[3].toInt());
  }
  std::string refusal(StreamClient& pClient, const std::string& pMethod,
                      const OXValue& pArguments) {
    return failureOf([&] { pClient.broker()->call("OXVideoStream", pMethod, pArguments); });
  }
};

TEST_F(Sharing, TheSameBytesInEveryFormatWhetherConvertedInPlaceOrCopied) {
  start();
  StreamClient client = connect();
  const auto device = [&](const char* pMethod, auto... pArguments) {
    return client.broker()->call("OXVideoDevice", pMethod, OXValue::array(pArguments...));
  };
  for (int resolution = kQQVGA; resolution <= k4VGA; ++resolution)
    for (const int colorSpace : {0, 6, 9, 10, 11, 12, 13, 14, 15, 16}) {
      SCOPED_TRACE(std::to_string(resolution) + " " + std::to_string(colorSpace));
      const Mapping memory(client, "openShared", wish("mine", 0, resolution, colorSpace));
      EXPECT_EQ(memory.answer(), OXValue::array("mine", 4 * kSlotBytes, 4, 0, kSlotBytes));
      push(7);
      const OXValue alone = client.call("nextShared", "mine", 1000);
      const OXValue twin = device("subscribeCamera", "twin", 0, resolution, colorSpace, 30);
      push(colorSpace);
      const OXValue image = client.call("nextShared", "mine", 1000);
      const OXValue expected = device("getImageRemote", twin.toString());
      push(colorSpace + 1);
      const OXValue raw = client.call("nextRawShared", "mine", 1000);
      const OXValue expectedRaw = device("getDirectRawImageRemote", twin.toString());
      ASSERT_EQ(alone.getSize(), 12);
      EXPECT_EQ(alone[6], OXValue::array(0, 0, expected[6].getSize(), 1));
      for (const auto& [given, wanted] : {std::pair(&image, &expected), {&raw, &expectedRaw}}) {
        ASSERT_EQ(given->getSize(), 12);
        for (const int field : {0, 1, 2, 3, 4, 5, 7, 8, 9, 10, 11})
          EXPECT_EQ((*given)[field], (*wanted)[field]) << field;
        const OXValue& place = (*given)[6];
        ASSERT_EQ(place[2].toInt(), (*wanted)[6].getSize());
        EXPECT_EQ(std::memcmp(memory.pixels(place), (*wanted)[6].GetBinary(),
                              static_cast<std::size_t>(place[2].toInt())),
                  0);
      }
      client.call("close", "mine");
      device("unsubscribe", "twin");
    }
}

TEST_F(Sharing, SeveralCamerasHaveASlotEach) {
  start();
  StreamClient client = connect();
  const Mapping memory(client, "openStreamsShared",
                       OXValue::array("both", OXValue::array(1, 0), OXValue::array(0, 0),
                                      OXValue::array(kRGB, kRGB), 0, 2));
  push(1, 0);
  push(2, 1);
  const OXValue images = client.call("nextShared", "both", 1000);
  ASSERT_EQ(images.getSize(), 2);
  EXPECT_EQ(memory.shade(images[0]), 2);
  EXPECT_EQ(memory.shade(images[1]), 1);
  push(3, 1);
  EXPECT_FALSE(client.call("nextShared", "both", 20).isValid()) << "no slot is free";
  for (int i = 0; i < 2; ++i) release(client, "both", images[i][6]);
  const OXValue one = client.call("nextShared", "both", 20);
  ASSERT_EQ(one.getSize(), 2);
  EXPECT_EQ(memory.shade(one[0]), 3);
  EXPECT_FALSE(one[1].isValid());
  // The slot of the camera without a frame is free again.
  release(client, "both", one[0][6]);
  push(4, 0);
  push(5, 1);
  EXPECT_EQ(client.call("nextShared", "both", 1000).getSize(), 2);
}

TEST_F(Sharing, ASlotIsTheClientsUntilItReleasesIt) {
  start();
  StreamClient client = connect();
  const Mapping memory(client, "openShared", wish("mine", 2));
  std::vector<OXValue> images;
  for (int shade = 1; shade <= 2; ++shade) {
    push(shade);
    images.push_back(client.call("nextShared", "mine", 1000));
  }
  auto waiting = client.ask("mine", 20000, "nextShared");
  ASSERT_TRUE(awaitWaiting(1));
  for (int shade = 3; shade <= 5; ++shade) push(shade);
  EXPECT_EQ(client.statistic("mine", 0), 2);
  EXPECT_EQ(memory.shade(images[0]), 1) << "never written while it is held";
  EXPECT_EQ(memory.shade(images[1]), 2);
  release(client, "mine", images[0][6]);
  const OXValue next = waiting.get();
  EXPECT_EQ(memory.shade(next), 5);
  EXPECT_EQ(next[6], OXValue::array(0, 0, 160 * 120 * 3, 2));
  EXPECT_EQ(client.statistic("mine", 1), 2) << "what came meanwhile is skipped";
  push(6);
  EXPECT_FALSE(client.call("nextShared", "mine", 20).isValid());
  EXPECT_EQ(client.statistic("mine", 2), 1);
  // Pixels by the socket need no slot.
  EXPECT_EQ(shadeOf(client.call("next", "mine", 1000)), 6);

  const struct {
    int slot, generation;
    const char* why;
  } kWrong[] = {{0, 1, "late"},   {1, 0, "no generation"}, {2, 1, "beyond the last slot"},
                {-1, 1, "below"}, {1, 2, "not yet"},       {1 << 30, 1, "far beyond"}};
  for (const auto& test : kWrong)
    EXPECT_EQ(refusal(client, "release", OXValue::array("mine", test.slot, test.generation)),
              "Slot " + std::to_string(test.slot) +
                  " of stream \"mine\" is not held in generation " +
                  std::to_string(test.generation))
        << test.why;
  release(client, "mine", images[1][6]);
  EXPECT_NE(refusal(client, "release", OXValue::array("mine", 1, 1)), "none") << "a second time";
  StreamClient other = connect();
  EXPECT_EQ(refusal(other, "release", OXValue::array("mine", 0, 2)),
            "Stream \"mine\" belongs to another connection");
}

TEST_F(Sharing, AFrameIsThereBeforeItIsAskedForWhileTheClientKeepsUp) {
  start();
  StreamClient client = connect();
  const Mapping memory(client, "openShared", wish("mine", 2));
  const StreamProbe probe(*fStreams);
  const auto conversions = [&] { return client.call("timings")[2][1].toInt(); };
  const auto take = [&](int pShade) {
    const OXValue image = client.call("nextShared", "mine", 1000);
    EXPECT_EQ(memory.shade(image), pShade);
    if (image.isArray()) release(client, "mine", image[6]);
  };
  push(1);
  take(1);
  for (int shade = 2; shade <= 4; ++shade) {
    push(shade);
    ASSERT_TRUE(eventually([&] { return probe.hasAhead("mine"); }));
    const int before = conversions();
    take(shade);
    EXPECT_EQ(conversions(), before);
  }
  EXPECT_EQ(client.statistic("mine", 0), 4);
  // What is not asked for is prepared once and no more.
  push(5);
  ASSERT_TRUE(eventually([&] { return probe.hasAhead("mine"); }));
  push(6);
  push(7);
  EXPECT_FALSE(probe.hasAhead("mine"));
  const int before = conversions();
  take(7);
  EXPECT_EQ(conversions(), before + 1);
  EXPECT_EQ(client.statistic("mine", 1), 2);
  // Given by the socket, it is not given again.
  push(8);
  take(8);
  push(9);
  ASSERT_TRUE(eventually([&] { return probe.hasAhead("mine"); }));
  EXPECT_EQ(shadeOf(client.call("next", "mine", 1000)), 9);
  EXPECT_FALSE(client.call("nextShared", "mine", 10).isValid());
  push(10);
  take(10);
  push(11);
  ASSERT_TRUE(eventually([&] { return probe.hasAhead("mine"); }));
  client.call("close", "mine");
}

TEST_F(Sharing, AClientCanOnlyRead) {
  start();
  StreamClient client = connect();
  const Mapping memory(client, "openShared", wish("mine", 2));
  const std::string path = "/proc/self/fd/" + std::to_string(memory.descriptor());
  const OXDescriptor again(::open(path.c_str(), O_RDWR | O_CLOEXEC));
  ASSERT_TRUE(again.isOpen());
  for (const int file : {memory.descriptor(), again.number()}) {
    const auto fails = [](long pResult) { return pResult == -1 && errno == EPERM; };
    EXPECT_TRUE(fails(::write(file, "x", 1)));
    EXPECT_TRUE(fails(::ftruncate(file, 0)));
    EXPECT_TRUE(fails(::ftruncate(file, 100 * kSlotBytes)));
    EXPECT_TRUE(fails(::fallocate(file, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, 0, 4096)));
    EXPECT_TRUE(fails(::fcntl(file, F_ADD_SEALS, F_SEAL_WRITE)));
    EXPECT_EQ(::mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0), MAP_FAILED);
    void* const read = ::mmap(nullptr, 4096, PROT_READ, MAP_SHARED, file, 0);
    EXPECT_EQ(::mprotect(read, 4096, PROT_READ | PROT_WRITE), -1);
    ::munmap(read, 4096);
  }
  push(3);
  EXPECT_EQ(memory.shade(client.call("nextShared", "mine", 1000)), 3);
}

TEST_F(Sharing, RefusesWhatDoesNotFit) {
  // 3.5 MiB a slot: 14 of them have 49.2.
  start({.settings = {{"stream.sharedMiBPerClient", 50}, {"stream.sharedMiB", 180}}});
  StreamClient client = connect();
  StreamClient large = connect();
  StreamClient distant(fTcp);
  StreamClient keeping = connect();
  keeping.broker()->call("OXBroker", "keepSubscriptions", OXValue::array(true));
  const auto slots = [](int pCount, int pCameras, int pLeast) {
    return std::to_string(pCount) + " slots: a stream of " + std::to_string(pCameras) +
           (pCameras == 1 ? " camera" : " cameras") + " has " + std::to_string(pLeast) +
           " to 32, or 0 for as many as usual";
  };
  const struct {
    StreamClient& client;
    OXValue arguments;
    std::string refusal;
  } kCases[] = {
      {client, wish("a", 1), slots(1, 1, 2)},
      {client, wish("a", 33), slots(33, 1, 2)},
      {client, wish("a", -1), slots(-1, 1, 2)},
      {client, wish("a", 14), "none"},
      {client, wish("a", 2),
       "This client's streams have 49.2 MiB of shared memory, and 7.0 MiB more is over the limit "
       "of "
       "50 MiB a client: close one first, or ask for fewer slots"},
      {large, wish("b", 32), "none"},  // a single stream fits
      {distant, wish("c", 2),
       "Shared memory needs a connection by a Unix-domain socket (unix:PATH), which this one is "
       "not"},
      {keeping, wish("c", 2),
       "A stream with shared memory ends with its connection, which keeps what it subscribes: call "
       "OXBroker.keepSubscriptions(false) first"},
  };
  for (const auto& test : kCases)
    EXPECT_EQ(refusal(test.client, "openShared", test.arguments), test.refusal);
  StreamClient last = connect();
  EXPECT_EQ(
      refusal(last, "openShared", wish("d", 32)),
      "The streams of all clients have 161.7 MiB of shared memory, and 112.5 MiB more is over "
      "the limit of 180 MiB in all");
  EXPECT_EQ(refusal(last, "openShared", wish("d", 2)), "none");
  EXPECT_EQ(countMaps(), 3);
  // What refusals had begun is gone, and what closes makes room.
  large.call("close", "b");
  EXPECT_EQ(refusal(last, "openShared", wish("d", 2)), "none");
  EXPECT_EQ(DeviceProbe(*fDevice).countSubscribers(), 3u);
}

// ---- what is left of clients ----

TEST_F(Sharing, NothingIsLeftOfAStreamHoweverItEnds) {
  start();
  StreamClient client = connect();
  client.call("open", "mine", 0, 0, kRGB, 0);
  const int descriptors = countDescriptors();
  const auto isGone = [&] { return countMaps() == 0 && countDescriptors() == descriptors; };
  const auto open = [&](StreamClient& pClient) {
    EXPECT_EQ(refusal(pClient, "openShared", wish("shared", 2)), "none");
    EXPECT_EQ(countMaps(), 1);
    push(1);
    EXPECT_TRUE(pClient.call("nextShared", "shared", 1000).isArray());
  };
  open(client);
  client.call("close", "shared");
  EXPECT_TRUE(eventually(isGone));
  open(client);
  fDevice->unsubscribe("shared");
  EXPECT_TRUE(eventually(isGone));
  auto dying = std::make_unique<StreamClient>(fAddress);
  open(*dying);
  dying->broker()->close();
  dying.reset();
  EXPECT_TRUE(eventually(isGone));
}

std::string packed(int pNumber) {
  return {'\xcd', static_cast<char>(pNumber >> 8), static_cast<char>(pNumber)};
}
std::string packed(const std::string& pText) {
  return static_cast<char>(0xa0 + pText.size()) + pText;
}
template <typename... Values>
std::string packedArray(Values... pValues) {
  return static_cast<char>(0x90 + sizeof...(pValues)) + (packed(pValues) + ...);
}

/// How many die: OX_LOST_CLIENTS, 60 if that is unset.
int countOfDeaths() {
  const char* const count = std::getenv("OX_LOST_CLIENTS");
  return count ? std::max(1, std::atoi(count)) : 60;
}

/// Opens streams, asks for more than it reads, and is gone.
void liveAndDie(const std::string& pAddress, unsigned int pSeed) {
  std::mt19937 random(pSeed);
  RawClient client(pAddress);
  const std::string name = "c" + std::to_string(pSeed % 4);
  const bool isShared = random() % 2;
  client.send(isShared ? request(1, "OXVideoStream.openShared",
                                 packedArray(name, 0, int(random() % 4), 11, 0, 2))
                       : request(1, "OXVideoStream.open",
                                 packedArray(name, int(random() % 2), int(random() % 3), 11, 0)));
  if (random() % 8 == 0) return client.reset();
  // The id is the first string of the answer; plain reading loses the descriptor.
  const std::string answer = client.read(isShared ? 12 : 5);
  const std::size_t at = answer.find('c', 4);
  if (at == std::string::npos) return;
  const auto length = static_cast<std::size_t>(answer[at - 1] & 0x1f);
  std::string id = answer.substr(at, length);
  if (id.size() < length) id += client.read(length - id.size());
  const int requests = static_cast<int>(random() % 6);
  for (int i = 0; i < requests; ++i) {
    const char* const kMethods[] = {"next", "nextRaw", "nextShared", "close", "statistics"};
    const std::string method = kMethods[random() % (i < 3 ? 3 : 5)];
    client.send(request(
        static_cast<char>(2 + i), "OXVideoStream." + method,
        method.starts_with("next") ? packedArray(id, int(random() % 50) * 10) : packedArray(id)));
  }
  // An answer has five bytes at least.
  if (random() % 2) client.read(5 * static_cast<std::size_t>(requests));
  if (random() % 2) client.reset();
}

TEST_F(Sharing, NothingIsLeftOfClientsThatDieAtRandomMoments) {
  const unsigned int seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  start();
  StreamClient watcher = connect();
  watcher.open("watcher");
  const int descriptors = countDescriptors();
  std::atomic<int> left{countOfDeaths()};
  std::atomic<unsigned int> next{seed};
  std::vector<std::thread> threads;
  for (int i = 0; i < 6; ++i)
    threads.emplace_back([&] {
      while (--left >= 0) liveAndDie(fAddress, next++);
    });
  for (int shade = 0; left > 0; shade = (shade + 1) % 25) {
    for (int camera = 0; camera < 2; ++camera) push(shade, camera);
    watcher.call("next", "watcher", 10);
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(eventually([&] { return StreamProbe(*fStreams).countStreams() == 1; }));
  EXPECT_TRUE(eventually([&] { return DeviceProbe(*fDevice).countSubscribers() == 1; }));
  EXPECT_TRUE(eventually([&] { return countMaps() == 0 && countDescriptors() == descriptors; }))
      << countMaps() << " maps, " << countDescriptors() - descriptors << " descriptors more";
  EXPECT_EQ(DeviceProbe(*fDevice).complaints(), "");
  push(9);
  EXPECT_EQ(shadeOf(watcher.call("next", "watcher", 1000)), 9) << "nobody else has noticed";
}

}  // namespace
}  // namespace OX::test
