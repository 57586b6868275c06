// The real program, ended in the middle of its work: what was there before is there after, and
// nothing new looks complete.
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/inotify.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "child.h"
#include "recorded.h"

namespace OX::test {
namespace {

namespace fs = std::filesystem;

class Interrupted : public ::testing::Test {
 protected:
  ScratchFolder fFolder;
  const std::string fInput = fFolder.file("in.oxv");
  const std::string fTargets = fFolder.file("targets");

  /// Long enough to be interrupted: each verb works on it for a tenth of a second or more.
  void SetUp() override {
    OXVideo video;
    ASSERT_TRUE(video.recordVideo(fInput, 0, {{1280, 960, kYUV422, 8}}));
    const auto pixels = noise(1280 * 960 * 2, 1);
    for (int i = 0; i < 60; ++i)
      ASSERT_TRUE(video.write(pixels.data(), int(pixels.size()), i * 40'000, 0, 0, 0, 0, 0));
    video.closeVideo();
  }

  /// Runs a verb in the folder of targets and sends the signal as soon as something new is in one
  /// of the folders.
  int endWith(int pSignal, const std::vector<std::string>& pArguments,
              const std::vector<std::string>& pFolders) {
    const int events = ::inotify_init1(IN_CLOEXEC);
    for (const std::string& folder : pFolders)
      ::inotify_add_watch(events, folder.c_str(), IN_CREATE);
    std::vector<std::string> arguments{OXVIDEO_PROGRAM};
    arguments.insert(arguments.end(), pArguments.begin(), pArguments.end());
    Child child(arguments, fFolder.file("said"));
    pollfd created{events, POLLIN, 0};
    EXPECT_EQ(::poll(&created, 1, 30'000), 1) << textOfFile(fFolder.file("said"));
    child.signal(pSignal);
    ::close(events);
    return child.wait();
  }

  /// The names in the folder of targets, in order, hidden ones only when they are asked for.
  std::string names(bool pHidden) const {
    std::vector<std::string> all;
    for (const auto& entry : fs::directory_iterator(fTargets))
      if (const std::string name = entry.path().filename().string(); pHidden || name[0] != '.')
        all.push_back(name);
    std::sort(all.begin(), all.end());
    std::string text;
    for (const auto& name : all) text += name + " ";
    return text;
  }
};

TEST_F(Interrupted, aWriterLeavesTheOldFileOrNone) {
  const auto target = [&](const std::string& pName) { return fTargets + "/" + pName; };
  const std::vector<std::vector<std::string>> verbs{
      {"import", "test", target("out.oxv"), "--frames", "1000000", "--overwrite"},
      {"repair", fInput, target("out.oxv"), "--overwrite"},
      {"export", fInput, target("out.mkv"), "--overwrite"},
      {"export", fInput, target("out"), "--overwrite"}};
  for (const auto& verb : verbs) {
    int ended = 0;
    for (const int signal : {SIGINT, SIGTERM, SIGKILL})
      for (const bool isThere : {false, true}) {
        SCOPED_TRACE(verb[0] + " " + verb[2] + ", signal " + std::to_string(signal));
        fs::remove_all(fTargets);
        fs::create_directory(fTargets);
        const bool isFolder = verb[2] == target("out");
        const std::string old = isFolder ? verb[2] + "/old.png" : verb[2];
        if (isThere && isFolder) fs::create_directory(verb[2]);
        if (isThere) std::ofstream(old) << "old";
        const int status = endWith(signal, verb, {fTargets, verb[2]});
        // A busy machine may deliver the signal after the work.
        if (status == 0) continue;
        ++ended;
        EXPECT_EQ(status, 128 + signal);
        EXPECT_EQ(names(signal != SIGKILL),
                  isThere ? fs::path(verb[2]).filename().string() + " " : "");
        if (!isThere) continue;
        EXPECT_EQ(textOfFile(old), "old");
        if (!isFolder || signal == SIGKILL) continue;
        EXPECT_EQ(std::distance(fs::directory_iterator(verb[2]), {}), 1);
      }
    EXPECT_GT(ended, 0) << verb[0] << " is too fast to be interrupted";
  }
}

}  // namespace
}  // namespace OX::test
