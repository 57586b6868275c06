// The plug-in's entry point: which source a preference file selects, and what is logged if it
// selects none.
#include <oxvision/videoinput.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include <oxframework/oxservices.h>
#include "support/capture_log.h"

namespace OX::test {
namespace {

const char* const kUnread =
    "_createModule: VideoInput: Failed to read VideoInput.xml preference file.\n"
    "No module will be loaded\n";

std::string file(const std::string& pValue) {
  return "<preferences module=\"VideoInput\"><entry name=\"anything\" description=\"\" value=\"" +
         pValue + "\"/><entry name=\"source\" description=\"\" value=\"FileCam\"/></preferences>";
}

class EntryPoint : public testing::Test {
 protected:
  EntryPoint() { std::filesystem::create_directories(fFolder); }
  ~EntryPoint() override { std::filesystem::remove_all(fFolder); }

  /// Calls the entry point with a broker whose VideoInput.xml has this content; empty: no file.
  int load(const std::string& pContent) {
    std::filesystem::remove_all(fFolder / "VideoInput.xml");
    if (!pContent.empty()) std::ofstream(fFolder / "VideoInput.xml") << pContent;
    fPreferences = OXValue();
    fBroker = OXBroker::create();
    if (fHasService) OXPreferences::create(fBroker, fFolder.string());
    OXModule::createModule<OXMemory>(fBroker);
    const int result = _createModule(fBroker);
    fPublished = fBroker->getModule("OXVideoDevice") != nullptr;
    fBroker->shutdown();
    return result;
  }

  const std::filesystem::path fFolder =
      std::filesystem::path(testing::TempDir()) / ("preferences" + std::to_string(::getpid()));
  CaptureLog fLog;
  bool fHasService = true;
  bool fPublished = false;
  boost::shared_ptr<OXBroker> fBroker;
};

TEST_F(EntryPoint, SelectsTheSourceByTheFirstEntry) {
  const struct {
    std::string content;
    int result;
    std::string errors;
    const char* why;
  } kCases[] = {
      {file("SimulatorCam"), 0, "", "whatever the entry is called; the second one is ignored"},
      {file("FileCam"), 0, "", "the other source"},
      {file("simulatorcam"), 1,
       "_createModule: VideoInput: Unknown module name: simulatorcam\nNo module will be loaded\n",
       "case counts"},
      {file("USBCam"), 1, "_createModule: VideoInput: unknown moduleId: 1\n",
       "known by name, but not implemented"},
      {file("MioCam"), 1,
       "_createModule: Could not load MioCam: library was not build with I_AM_A_ROBOT compilation "
       "flag\n",
       "the robot's own"},
      {file(""), 1, kUnread, "an empty choice"},
      {"<preferences module=\"VideoInput\"><entry name=\"source\" type=\"int\" "
       "value=\"2\"/></preferences>",
       1, kUnread, "not a string"},
      {"<preferences module=\"VideoInput\"/>", 1, kUnread, "no entry"},
      {"", 1, kUnread, "no file"},
      {" ", 1, kUnread, "an empty file"},
      {"<preferences><entry", 1, kUnread, "not XML"},
  };
  for (const auto& test : kCases) {
    fLog.clear();
    EXPECT_EQ(load(test.content), test.result) << test.why;
    EXPECT_EQ(fLog.records(2), test.errors) << test.why;
    EXPECT_EQ(fPublished, test.result == 0) << test.why;
    const bool unreadable =
        test.content.empty() || test.content == " " || test.content == "<preferences><entry";
    EXPECT_EQ(fLog.count(3), unreadable ? 1 : 0) << "the service's own record, once: " << test.why;
  }
  EXPECT_EQ(moduleNameMap.size(), 4u);
  EXPECT_EQ(_closeModule(), 0);
}

TEST_F(EntryPoint, CreatesNoModuleWithoutAPreferenceService) {
  fHasService = false;
  EXPECT_EQ(load(file("SimulatorCam")), 1);
  EXPECT_EQ(fLog.count(3), 1);
  EXPECT_EQ(fLog.records(2), kUnread);
}

}  // namespace
}  // namespace OX::test
