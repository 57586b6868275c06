// The rename is the moment at which a file comes into being: before it the old file or none is
// there, after it the whole new one. The temporary file is in the same folder because a rename
// can't cross file systems.
#include "terminal/outputfile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <random>
#include <system_error>
#include <vector>

#include "terminal/exitstatus.h"
#include "terminal/filelock.h"
#include "terminal/interrupt.h"
#include "terminal/text.h"

namespace OX::cli {

namespace {

namespace fs = std::filesystem;

/// An open descriptor, or a negative number.
class Descriptor {
 public:
  explicit Descriptor(int pNumber) : fNumber(pNumber) {}
  ~Descriptor() {
    if (fNumber >= 0) ::close(fNumber);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int number() const { return fNumber; }
  /// False when the data could not be written after all, as on a full network drive.
  bool close() {
    const int number = fNumber;
    fNumber = -1;
    return ::close(number) == 0;
  }

 private:
  int fNumber;
};

std::string reasonOf(int pError) { return std::generic_category().message(pError); }

[[noreturn]] void refuse(const std::string& pPath, const std::string& pWhy) {
  throw OXFailure(fmt::format("can't write {}: {}", printable(pPath), printable(pWhy)));
}

fs::path folderOf(const fs::path& pPath) {
  const fs::path parent = pPath.parent_path();
  return parent.empty() ? fs::path(".") : parent;
}

/// Nothing when the folder can hold a new file, otherwise why not.
std::string folderTrouble(const fs::path& pFolder) {
  std::error_code error;
  const auto type = fs::status(pFolder, error).type();
  if (type == fs::file_type::not_found)
    return fmt::format("the folder {} does not exist", pFolder.string());
  if (type != fs::file_type::directory)
    return fmt::format("{}: {}", pFolder.string(), error ? error.message() : "not a folder");
  if (::access(pFolder.c_str(), W_OK | X_OK) == 0) return {};
  return errno == EACCES ? fmt::format("no permission to write in the folder {}", pFolder.string())
                         : fmt::format("{}: {}", pFolder.string(), reasonOf(errno));
}

/// Where the file itself is, for links; empty for what is neither a regular file nor absent.
std::string targetOf(const std::string& pPath, bool pOverwrite) {
  if (pPath.empty()) refuse(pPath, "the name is empty");
  std::error_code error;
  const auto status = fs::status(pPath, error);
  switch (status.type()) {
    case fs::file_type::not_found:
      // Renaming would replace a link that points to nothing.
      if (fs::is_symlink(fs::symlink_status(pPath, error)))
        refuse(pPath, "a link to a file that does not exist");
      if (pPath.ends_with('/')) refuse(pPath, "the name of a folder");
      return pPath;
    case fs::file_type::directory:
      refuse(pPath, "a folder");
    case fs::file_type::none:
      refuse(pPath, error.message());
    case fs::file_type::regular:
      break;
    default:
      return {};
  }
  if (!pOverwrite)
    throw OXFailure(fmt::format("{} exists; --overwrite replaces it", printable(pPath)));
  if (::access(pPath.c_str(), W_OK) != 0) refuse(pPath, reasonOf(errno));
  std::string target = fs::canonical(pPath, error).string();
  if (error) refuse(pPath, error.message());
  // Who replaces a file that is being recorded takes it away from its recorder, which would go on
  // writing to a file without a name.
  if (const std::string owner = lockOwner(target); !owner.empty())
    refuse(pPath, "locked by " + owner);
  return target;
}

/// ".film.oxv.k3v9qa.part": hidden, and taken for no complete file by anyone.
fs::path temporaryName(const fs::path& pFolder, const std::string& pName) {
  constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
  constexpr std::size_t kLongestName = 200;  // file systems allow 255 bytes with what is added
  std::random_device random;
  std::string key;
  for (int i = 0; i < 6; ++i) key += kLetters[random() % (sizeof kLetters - 1)];
  return pFolder / fmt::format(".{}.{}.part", pName.substr(0, kLongestName), key);
}

/// Repeats pCreate(path) with new names until the name is free. Returns the path.
template <typename Create>
std::string createTemporary(const fs::path& pFolder, const std::string& pName,
                            const std::string& pPath, Create pCreate) {
  for (int attempt = 0; attempt < 100; ++attempt) {
    std::string path = temporaryName(pFolder, pName).string();
    if (pCreate(path)) return path;
    if (errno != EEXIST) break;
  }
  refuse(pPath, reasonOf(errno));
}

void writeAll(int pDescriptor, std::string_view pBytes, const std::string& pPath) {
  while (!pBytes.empty()) {
    const ssize_t written = ::write(pDescriptor, pBytes.data(), pBytes.size());
    if (written < 0 && errno == EINTR && OXInterrupt::requested()) throw OXInterrupted();
    if (written < 0 && errno != EINTR) refuse(pPath, reasonOf(errno));
    if (written > 0) pBytes.remove_prefix(static_cast<std::size_t>(written));
  }
}

void appendTo(const std::string& pFile, std::string_view pBytes, const std::string& pPath) {
  Descriptor file(::open(pFile.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
  if (file.number() < 0) refuse(pPath, reasonOf(errno));
  writeAll(file.number(), pBytes, pPath);
  if (!file.close()) refuse(pPath, reasonOf(errno));
}

/// False with errno when pTo exists.
bool renameToNew(const std::string& pFrom, const std::string& pTo) {
  if (::renameat2(AT_FDCWD, pFrom.c_str(), AT_FDCWD, pTo.c_str(), RENAME_NOREPLACE) == 0)
    return true;
  // Some network file systems know no such rename.
  if (errno != EINVAL && errno != ENOSYS) return false;
  std::error_code ignored;
  if (fs::exists(fs::symlink_status(pTo, ignored))) {
    errno = EEXIST;
    return false;
  }
  return ::rename(pFrom.c_str(), pTo.c_str()) == 0;
}

/// The new file has the permissions of the old one and is on the disk before that one goes.
bool replaceFile(const std::string& pFrom, const std::string& pTo) {
  const Descriptor file(::open(pFrom.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.number() < 0) return false;
  struct stat old {};
  if (::stat(pTo.c_str(), &old) != 0) return false;
  // Best effort: not every file system has permissions.
  [[maybe_unused]] const int ignored = ::fchmod(file.number(), old.st_mode & 07777);
  return ::fsync(file.number()) == 0 && ::rename(pFrom.c_str(), pTo.c_str()) == 0;
}

std::vector<std::string> namesIn(const std::string& pFolder) {
  std::vector<std::string> names;
  for (const fs::directory_entry& entry : fs::directory_iterator(pFolder))
    names.push_back(entry.path().filename().string());
  return names;
}

}  // namespace

void addOverwriteOption(OXVerb& pVerb, bool& pTarget) {
  pVerb.flag("--overwrite", pTarget, "replace what exists under the name of the output");
}

void requireWritable(const std::string& pPath, bool pOverwrite) {
  const std::string target = targetOf(pPath, pOverwrite);
  if (target.empty()) return;
  if (const std::string trouble = folderTrouble(folderOf(target)); !trouble.empty())
    refuse(pPath, trouble);
}

void requireExtension(const std::string& pPath, const char* pExtension) {
  const fs::path extension = fs::path(pPath).extension();
  std::error_code ignored;
  if (extension.empty() || extension == pExtension || fs::is_other(pPath, ignored)) return;
  throw OXUsageError(fmt::format("the output is written as {}, which the name {} contradicts",
                                 pExtension, printable(pPath)));
}

OXOutputFile::OXOutputFile(const std::string& pPath, bool pOverwrite, OXOutput& pOut)
    : fPath(pPath), fOverwrite(pOverwrite), fOut(pOut) {
  const bool isStandardOutput = pPath == "-";
  if (isStandardOutput && pOut.isTerminal())
    throw OXUsageError(
        "binary data would confuse the terminal: redirect standard output, or name a file");
  if (!isStandardOutput) {
    requireWritable(pPath, pOverwrite);
    fTarget = targetOf(pPath, pOverwrite);
  }
  std::error_code error;
  const fs::path folder =
      fTarget.empty() ? fs::temp_directory_path(error) : folderOf(fs::path(fTarget));
  if (error) refuse(pPath, "no folder for temporary files: " + error.message());
  // What passes through the folder for temporary files is nobody else's business.
  const mode_t mode = fTarget.empty() ? 0600 : 0666;
  fTemporary = createTemporary(
      folder, fTarget.empty() ? "oxvideo" : fs::path(fTarget).filename().string(), pPath,
      [mode](const std::string& pFile) {
        return Descriptor(::open(pFile.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, mode))
                   .number() >= 0;
      });
}

OXOutputFile::~OXOutputFile() {
  if (!fTemporary.empty()) ::unlink(fTemporary.c_str());
}

std::string OXOutputFile::named(std::string pText) const {
  for (std::size_t at = 0; (at = pText.find(fTemporary, at)) != std::string::npos;
       at += fPath.size())
    pText.replace(at, fTemporary.size(), fPath);
  return pText;
}

void OXOutputFile::write(std::string_view pBytes) { appendTo(fTemporary, pBytes, fPath); }

void OXOutputFile::xCopyTo(const std::function<void(std::string_view)>& pWrite) {
  const Descriptor file(::open(fTemporary.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.number() < 0) refuse(fPath, reasonOf(errno));
  std::vector<char> block(1 << 20);
  while (true) {
    if (OXInterrupt::requested()) throw OXInterrupted();
    const ssize_t count = ::read(file.number(), block.data(), block.size());
    if (count == 0) return;
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) refuse(fPath, reasonOf(errno));
    pWrite({block.data(), static_cast<std::size_t>(count)});
  }
}

void OXOutputFile::commit() {
  if (OXInterrupt::requested()) throw OXInterrupted();
  if (fPath == "-")
    return xCopyTo([this](std::string_view pBytes) {
      try {
        fOut.write(pBytes);
      } catch (const OXOutputClosed&) {
        throw OXFailure("standard output was closed before everything was written");
      }
    });
  if (fTarget.empty()) {
    const Descriptor special(::open(fPath.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY));
    if (special.number() < 0) refuse(fPath, reasonOf(errno));
    return xCopyTo([&](std::string_view pBytes) { writeAll(special.number(), pBytes, fPath); });
  }
  // Again, since it may have come into being or been locked while this one was written.
  const bool exists = ::access(fTarget.c_str(), F_OK) == 0;
  if (exists) targetOf(fPath, fOverwrite);
  if (exists ? !replaceFile(fTemporary, fTarget) : !renameToNew(fTemporary, fTarget))
    refuse(fPath, reasonOf(errno));
  fTemporary.clear();
}

void writeOutputFile(const std::string& pPath, std::string_view pBytes, bool pOverwrite,
                     OXOutput& pOut) {
  OXOutputFile file(pPath, pOverwrite, pOut);
  file.write(pBytes);
  file.commit();
}

OXOutputFolder::OXOutputFolder(const std::string& pPath, bool pOverwrite)
    : fPath(pPath), fOverwrite(pOverwrite) {
  std::error_code error;
  fs::path target = pPath;
  const auto type = fs::status(target, error).type();
  if (type == fs::file_type::directory) {
    fExists = true;
    target = fs::canonical(target, error);
    const bool isEmpty = !error && fs::is_empty(target, error);
    if (error) refuse(pPath, error.message());
    if (!isEmpty && !pOverwrite)
      throw OXFailure(fmt::format(
          "the folder {} is not empty; --overwrite adds to it and replaces files of the same name",
          printable(pPath)));
    if (const std::string trouble = folderTrouble(target); !trouble.empty()) refuse(pPath, trouble);
  } else if (type == fs::file_type::none) {
    refuse(pPath, error.message());
  } else if (type != fs::file_type::not_found || fs::is_symlink(pPath, error)) {
    refuse(pPath, "exists and is not a folder");
  }
  // Without the slash at the end, after which the name would be empty.
  if (!target.has_filename()) target = target.parent_path();
  fTarget = target.string();
  // Within a folder that exists, since its parent may not be ours to write.
  const fs::path place = fExists ? target : folderOf(target);
  if (const std::string trouble = folderTrouble(place); !trouble.empty()) refuse(pPath, trouble);
  fTemporary = createTemporary(
      place, target.filename().string(), pPath,
      [](const std::string& pFolder) { return ::mkdir(pFolder.c_str(), 0777) == 0; });
}

OXOutputFolder::~OXOutputFolder() {
  std::error_code ignored;
  if (!fTemporary.empty()) fs::remove_all(fTemporary, ignored);
}

void OXOutputFolder::write(const std::string& pName, std::string_view pBytes) {
  appendTo((fs::path(fTemporary) / pName).string(), pBytes, (fs::path(fPath) / pName).string());
}

std::size_t OXOutputFolder::commit() {
  if (OXInterrupt::requested()) throw OXInterrupted();
  if (!fExists) {
    if (!renameToNew(fTemporary, fTarget)) refuse(fPath, reasonOf(errno));
    fTemporary.clear();
    return 0;
  }
  const std::vector<std::string> ours = namesIn(fTemporary);
  for (const std::string& name : ours) {
    const std::string from = (fs::path(fTemporary) / name).string();
    const std::string to = (fs::path(fTarget) / name).string();
    if (fOverwrite ? ::rename(from.c_str(), to.c_str()) != 0 : !renameToNew(from, to))
      refuse((fs::path(fPath) / name).string(), reasonOf(errno));
  }
  ::rmdir(fTemporary.c_str());
  fTemporary.clear();
  return namesIn(fTarget).size() - ours.size();
}

}  // namespace OX::cli
