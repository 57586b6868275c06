// Recording compared with plain writing and reading of the same bytes, alternating within one run,
// and opening a long recording. The files are in the folder that TMPDIR names.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxvideo.h>

namespace {

using namespace OX;

constexpr int kFrames = 100;
constexpr int kFrameBytes = 1280 * 960 * 2;
constexpr std::int64_t kIntervalUs = 33'333;

const std::vector<unsigned char>& pixels() {
  static const std::vector<unsigned char> bytes = [] {
    std::vector<unsigned char> random(kFrameBytes);
    std::mt19937 generator(1);
    for (auto& byte : random) byte = static_cast<unsigned char>(generator());
    return random;
  }();
  return bytes;
}

/// Two files of this run, removed at its end.
class Files {
 public:
  Files() {
    std::string name = (std::filesystem::temp_directory_path() / "oxvideo-XXXXXX").string();
    if (!::mkdtemp(name.data())) std::abort();
    fFolder = name;
  }
  ~Files() { std::filesystem::remove_all(fFolder); }
  Files(const Files&) = delete;
  Files& operator=(const Files&) = delete;
  std::string plain() const { return (fFolder / "plain").string(); }
  std::string recording() const { return (fFolder / "a.oxv").string(); }

 private:
  std::filesystem::path fFolder;
};

bool writePlain(const std::string& pPath) {
  const int file = ::open(pPath.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  bool good = file >= 0;
  for (int i = 0; good && i < kFrames; ++i)
    good = ::write(file, pixels().data(), kFrameBytes) == kFrameBytes;
  ::close(file);
  return good;
}

bool writeRecording(const std::string& pPath, int pFrames, const streamHeader& pStream,
                    int pFrameBytes) {
  OXVideo video;
  bool good = video.recordVideo(pPath, 0, {pStream});
  for (int i = 0; good && i < pFrames; ++i)
    good = video.write(pixels().data(), pFrameBytes, i * kIntervalUs, 0, 0, 0, 0, 0);
  video.closeVideo();
  return good;
}

bool readPlain(const std::string& pPath, OXImage& pImage) {
  const int file = ::open(pPath.c_str(), O_RDONLY | O_CLOEXEC);
  bool good = file >= 0;
  for (int i = 0; good && i < kFrames; ++i)
    good = ::read(file, pImage.fData, kFrameBytes) == kFrameBytes;
  ::close(file);
  return good;
}

bool readRecording(const std::string& pPath, OXImage& pImage) {
  OXVideo video;
  bool good = video.readVideo(pPath);
  for (int i = 0; good && i < kFrames; ++i) good = video.getNextFrame(pImage, false);
  return good;
}

/// The shortest of several runs, in processor time: files that stay in memory cost nothing else,
/// and other load on the machine then doesn't count.
class Fastest {
 public:
  template <typename Work>
  void time(benchmark::State& pState, Work pWork) {
    const double start = processorSeconds();
    if (!pWork()) pState.SkipWithError("the file can't be written or read");
    fSeconds = std::min(fSeconds, processorSeconds() - start);
  }
  double bytesPerSecond() const { return double(kFrames) * kFrameBytes / fSeconds; }

 private:
  static double processorSeconds() {
    timespec now{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) * 1e-9;
  }

  double fSeconds = std::numeric_limits<double>::max();
};

void report(benchmark::State& pState, const Fastest& pPlain, const Fastest& pRecording) {
  pState.counters["plain_B/s"] = pPlain.bytesPerSecond();
  pState.counters["oxv_B/s"] = pRecording.bytesPerSecond();
  pState.counters["percent"] = 100 * pRecording.bytesPerSecond() / pPlain.bytesPerSecond();
}

const streamHeader k4VgaStream{1280, 960, kYUV422, 8};

void writing(benchmark::State& pState) {
  const Files files;
  Fastest plain, recording;
  for (auto _ : pState) {
    std::filesystem::remove(files.plain());
    plain.time(pState, [&] { return writePlain(files.plain()); });
    std::filesystem::remove(files.recording());
    recording.time(pState, [&] {
      return writeRecording(files.recording(), kFrames, k4VgaStream, kFrameBytes);
    });
  }
  report(pState, plain, recording);
}
BENCHMARK(writing)->Name("write 1280x960")->Unit(benchmark::kMillisecond)->Iterations(15);

void reading(benchmark::State& pState) {
  const Files files;
  if (!writePlain(files.plain()) ||
      !writeRecording(files.recording(), kFrames, k4VgaStream, kFrameBytes))
    return pState.SkipWithError("the files can't be written");
  OXImage image(k4VGA, kRGB, false, 0, 0, 0, 0);
  Fastest plain, recording;
  for (auto _ : pState) {
    plain.time(pState, [&] { return readPlain(files.plain(), image); });
    recording.time(pState, [&] { return readRecording(files.recording(), image); });
  }
  report(pState, plain, recording);
}
BENCHMARK(reading)->Name("read 1280x960")->Unit(benchmark::kMillisecond)->Iterations(15);

void opening(benchmark::State& pState) {
  const Files files;
  constexpr int kMany = 100'000;
  if (!writeRecording(files.recording(), kMany, {4, 4, kYuv, 8}, 16))
    return pState.SkipWithError("the file can't be written");
  for (auto _ : pState) {
    OXVideo video;
    if (!video.readVideo(files.recording()) || video.getNumberOfImages() != kMany)
      pState.SkipWithError("the file can't be opened");
  }
}
BENCHMARK(opening)->Name("open 100000 frames")->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
