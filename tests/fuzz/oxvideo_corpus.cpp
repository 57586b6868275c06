// Writes the files that the fuzzer of the .oxv reader starts from: oxvideo_corpus FOLDER. One of
// each shape that mutation would hardly find: no frame, several streams, not closed, cut short.
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxvideo.h>

namespace {

using namespace OX;

struct Seed {
  std::string name;
  std::vector<streamHeader> streams;
  int frames;
  int frameBytes;
  bool closed;
};

bool write(const std::string& pPath, const Seed& pSeed) {
  OXVideo video;
  if (!video.recordVideo(pPath, 1, pSeed.streams)) return false;
  for (int i = 0; i < pSeed.frames; ++i) {
    const std::vector<unsigned char> pixels(static_cast<std::size_t>(pSeed.frameBytes),
                                            static_cast<unsigned char>(i));
    if (!video.write(pixels.data(), pSeed.frameBytes, 33'333LL * i, 0, 0, 0, 0, 0)) return false;
  }
  if (pSeed.closed) video.closeVideo();
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: oxvideo_corpus FOLDER\n";
    return 2;
  }
  const std::filesystem::path folder = argv[1];
  std::filesystem::create_directories(folder);
  const streamHeader rgb{4, 2, kRGB, 8};
  const streamHeader grey{8, 3, kYuv, 8};
  const std::vector<Seed> seeds{{"empty", {rgb}, 0, 24, true},
                                {"one", {rgb}, 1, 24, true},
                                {"three", {rgb}, 3, 24, true},
                                {"open", {grey}, 3, 24, false},
                                {"two-streams", {rgb, grey}, 5, 24, true},
                                {"misfits", {rgb}, 2, 7, true},
                                {"large", {{32, 32, kYUV422, 8}}, 2, 2048, true}};
  for (const Seed& seed : seeds)
    if (!write((folder / (seed.name + ".oxv")).string(), seed)) return 1;
  // A file that ends within its second frame.
  std::filesystem::copy_file(folder / "three.oxv", folder / "cut.oxv",
                             std::filesystem::copy_options::overwrite_existing);
  std::filesystem::resize_file(folder / "cut.oxv", 250);
  return 0;
}
