/// Makes recordings for tests, damages them, and runs verbs on them.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <oxframework/oxdefinitions.h>
#include <oxframework/oxvideo.h>
#include "program.h"
#include "scratch_folder.h"

namespace OX::test {

inline std::vector<unsigned char> noise(std::size_t pSize, unsigned pSeed) {
  std::vector<unsigned char> bytes(pSize);
  for (unsigned char& byte : bytes) {
    pSeed = pSeed * 1664525u + 1013904223u;
    byte = static_cast<unsigned char>(pSeed >> 24);
  }
  return bytes;
}

/// One frame for each stamp, of noise with the frame's number as seed, in turn for the streams.
inline void record(const std::string& pPath, const std::vector<streamHeader>& pStreams,
                   const std::vector<std::int64_t>& pStampsUs, bool pClose = true) {
  OXVideo video;
  if (!video.recordVideo(pPath, 1, pStreams)) throw std::runtime_error(video.getLastError());
  for (unsigned i = 0; i < pStampsUs.size(); ++i) {
    const streamHeader& stream = pStreams[i % pStreams.size()];
    const auto pixels = noise(static_cast<std::size_t>(stream.width * stream.height *
                                                       getLayersFromColorSpace(stream.colorSpace)),
                              i);
    if (!video.write(pixels.data(), static_cast<int>(pixels.size()), pStampsUs[i], 1, 0.25f, 0, 0,
                     float(i)))
      throw std::runtime_error(video.getLastError());
  }
  if (pClose) video.closeVideo();
}

/// One frame for each number of bytes, in turn for the streams: of noise with the frame's number as
/// seed, which is its last angle and its stamp, a millisecond apart.
inline void recordSizes(const std::string& pPath, const std::vector<streamHeader>& pStreams,
                        const std::vector<int>& pBytes, bool pClose = true) {
  OXVideo video;
  if (!video.recordVideo(pPath, 0, pStreams)) throw std::runtime_error(video.getLastError());
  for (unsigned i = 0; i < pBytes.size(); ++i) {
    const auto pixels = noise(static_cast<std::size_t>(pBytes[i]), i);
    if (!video.write(pixels.data(), pBytes[i], std::int64_t{i} * 1000, 1, 0.25f, 0, 0, float(i)))
      throw std::runtime_error(video.getLastError());
  }
  if (pClose) video.closeVideo();
}

/// pCount stamps that rise by pStepUs.
inline std::vector<std::int64_t> steady(int pCount, std::int64_t pStepUs) {
  std::vector<std::int64_t> stamps;
  for (int i = 0; i < pCount; ++i) stamps.push_back(1'700'000'000'000'000 + i * pStepUs);
  return stamps;
}

inline std::string textOfFile(const std::string& pPath) {
  std::ifstream file(pPath, std::ios::binary);
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

inline void flip(const std::string& pPath, std::streamoff pByte) {
  std::fstream file(pPath, std::ios::in | std::ios::out | std::ios::binary);
  file.seekg(pByte);
  const char byte = static_cast<char>(file.get() ^ 0x10);
  file.seekp(pByte);
  file.put(byte);
}

/// What a command line said, first its status: "0 text".
inline std::string oxvideo(const ScratchFolder& pFolder,
                           const std::vector<std::string>& pArguments) {
  const std::string path = pFolder.file("said");
  const int descriptor = ::open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600);
  cli::OXOutput output(descriptor);
  const int status = cli::runProgram(pArguments, output, output);
  ::close(descriptor);
  return std::to_string(status) + " " + textOfFile(path);
}

}  // namespace OX::test
