// What a verb writes: nothing is replaced unasked, and nothing unfinished has the name asked for.
#include "terminal/outputfile.h"

#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "recorded.h"
#include "terminal/exitstatus.h"

namespace OX::test {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

class OutputFile : public ::testing::Test {
 protected:
  ScratchFolder fFolder;
  const std::string fPath = fFolder.file("a.bin");
  cli::OXOutput fOut{1};

  static void store(const std::string& pPath, const std::string& pText) {
    std::ofstream(pPath, std::ios::binary) << pText;
  }
  /// The names in the folder, in order.
  std::string names() const {
    std::vector<std::string> all;
    for (const auto& entry : fs::directory_iterator(fFolder.file("")))
      all.push_back(entry.path().filename().string());
    std::sort(all.begin(), all.end());
    std::string text;
    for (const auto& name : all) text += name + " ";
    return text;
  }
  /// "" when it was written, else why not.
  std::string write(const std::string& pPath, bool pOverwrite) {
    try {
      cli::writeOutputFile(pPath, "new", pOverwrite, fOut);
      return "";
    } catch (const std::exception& error) {
      return error.what();
    }
  }
};

TEST_F(OutputFile, refusesWhatCannotOrMustNotBeReplaced) {
  store(fPath, "old");
  fs::create_directory(fFolder.file("folder"));
  fs::create_symlink(fFolder.file("nothing"), fFolder.file("dangling"));
  store(fFolder.file("held"), "held");
  const int held = ::open(fFolder.file("held").c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(::flock(held, LOCK_EX), 0);
  const std::string before = names();
  struct Case {
    std::string path;
    bool overwrite;
    std::string why;
  };
  for (const Case& row :
       {Case{fPath, false, "exists; --overwrite replaces it"},
        {fFolder.file("folder"), true, "a folder"},
        {fFolder.file("new/"), false, "the name of a folder"},
        {fFolder.file("none/a"), false, "none does not exist"},
        {fPath + "/a", false, "not a folder"},
        {fFolder.file("dangling"), true, "a link to a file that does not exist"},
        {fFolder.file("held"), true, "locked by process " + std::to_string(::getpid())},
        {"", true, "the name is empty"}}) {
    EXPECT_THAT(write(row.path, row.overwrite), HasSubstr(row.why)) << row.path;
    EXPECT_THROW(cli::requireWritable(row.path, row.overwrite), cli::OXFailure) << row.path;
    EXPECT_EQ(names(), before) << row.path;
  }
  ::close(held);
  EXPECT_EQ(textOfFile(fPath), "old");
}

TEST_F(OutputFile, replacesWhenAskedAndKeepsLinksAndPermissions) {
  store(fPath, "old");
  ::chmod(fPath.c_str(), 0640);
  fs::create_symlink(fPath, fFolder.file("link"));
  EXPECT_EQ(write(fFolder.file("link"), true), "");
  EXPECT_EQ(textOfFile(fPath), "new");
  EXPECT_TRUE(fs::is_symlink(fFolder.file("link")));
  EXPECT_EQ(fs::status(fPath).permissions(), fs::perms(0640));
  EXPECT_EQ(write(fFolder.file(std::string(255, 'x')), false), "") << "as long as names can be";
  EXPECT_EQ(write("/dev/full", false), "can't write /dev/full: No space left on device");
  EXPECT_EQ(write("/dev/null", false), "") << "a device is nothing that could be replaced";
}

TEST_F(OutputFile, leavesTheOldFileOrNoneWithoutACommit) {
  store(fPath, "old");
  for (const std::string& path : {fPath, fFolder.file("b")}) {
    cli::OXOutputFile file(path, true, fOut);
    file.write("half");
    EXPECT_EQ(textOfFile(fPath), "old");
    EXPECT_FALSE(fs::exists(fFolder.file("b")));
    EXPECT_EQ(file.named(file.temporaryPath() + ": full"), path + ": full");
  }
  EXPECT_EQ(names(), "a.bin ");
}

TEST_F(OutputFile, neverReplacesWhatCameMeanwhile) {
  cli::OXOutputFile file(fPath, false, fOut);
  cli::OXOutputFolder folder(fFolder.file("pictures"), false);
  folder.write("1.png", "new");
  store(fPath, "somebody else's");
  fs::create_directory(fFolder.file("pictures"));
  store(fFolder.file("pictures/other"), "");
  EXPECT_THROW(file.commit(), cli::OXFailure);
  EXPECT_EQ(textOfFile(fPath), "somebody else's");
  EXPECT_THROW(folder.commit(), cli::OXFailure);
  EXPECT_FALSE(fs::exists(fFolder.file("pictures/1.png")));
}

TEST_F(OutputFile, copiesToStandardOutputOnlyWhatIsComplete) {
  const std::string sink = fFolder.file("sink");
  const int descriptor = ::open(sink.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
  cli::OXOutput out(descriptor);
  { cli::OXOutputFile("-", false, out).write("half"); }
  EXPECT_EQ(textOfFile(sink), "");
  const std::string bytes(3'000'000, 'b');
  cli::writeOutputFile("-", bytes, false, out);
  EXPECT_EQ(textOfFile(sink), bytes);
  ::close(descriptor);

  const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(terminal, 0);
  cli::OXOutput screen(terminal);
  EXPECT_THROW(cli::OXOutputFile("-", false, screen), cli::OXUsageError);
  ::close(terminal);
}

TEST_F(OutputFile, foldersAreWholeOrAbsent) {
  const std::string path = fFolder.file("pictures/");
  const auto make = [&](bool pOverwrite, bool pCommit) {
    cli::OXOutputFolder folder(path, pOverwrite);
    folder.write("1.png", "one");
    folder.write("2.png", "two");
    return pCommit ? int(folder.commit()) : -1;
  };
  make(false, false);
  EXPECT_EQ(names(), "");
  EXPECT_EQ(make(false, true), 0);
  EXPECT_THROW(make(false, true), cli::OXFailure) << "not empty";
  store(path + "1.png", "edited");
  store(path + "mine.txt", "kept");
  make(true, false);
  EXPECT_EQ(textOfFile(path + "1.png"), "edited");
  EXPECT_EQ(make(true, true), 1) << "one file was there before and is still";
  EXPECT_EQ(textOfFile(path + "1.png"), "one");
  EXPECT_EQ(names(), "pictures ");
  EXPECT_EQ(std::distance(fs::directory_iterator(path), {}), 3) << "no temporary folder stays";
  store(fPath, "");
  EXPECT_THROW(cli::OXOutputFolder(fPath, true), cli::OXFailure);
}

}  // namespace
}  // namespace OX::test
