/// A temporary folder for one test, removed afterwards.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <string>

namespace OX::test {

class ScratchFolder {
 public:
  ScratchFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "oxvideoXXXXXX").string();
    fPath = ::mkdtemp(name.data());
  }
  ~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(fPath, ignored);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  std::string file(const std::string& pName) const { return (fPath / pName).string(); }

 private:
  std::filesystem::path fPath;
};

}  // namespace OX::test
