// Every publication, called over a connection, in cases that work and cases that fail: each on a
// new device with the same three subscribers and one frame on each camera.
#include <filesystem>

#include "service.h"
#include "tables.h"

namespace OX::test {
namespace {

class Folder {
 public:
  Folder() { std::filesystem::create_directories(path); }
  ~Folder() { std::filesystem::remove_all(path); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  const std::string path = testing::TempDir() + "ox_calls_" + std::to_string(::getpid());
};

// Subscribes "mono" to camera 0, "follower" to the active camera and "multi" to cameras 1 and 0;
// the frames arrive one second after the clock's start.
void addSubscribersAndFrames(Service& pService) {
  pService.call("subscribeCamera", "mono", 0, kQVGA, kYUV422, 30);
  pService.call("subscribe", "follower", kQVGA, kYUV422, 30);
  pService.call("subscribeCameras", "multi", std::vector<int>{1, 0}, std::vector<int>{0, 1},
                std::vector<int>{kYuv, kRGB}, 10);
  pService.clock.setUs(FakeClock::kStartUs + 1'000'000);
  for (int camera = 0; camera < 2; ++camera)
    pService.call("putImage", camera, 320, 240, patternFrame(320, 240, camera));
}

/// "gives VALUE", or "raises METHOD: TEXT", as in the tables.
std::string outcomeOf(Service& pService, const std::string& pMethod, const OXValue& pArguments) {
  try {
    return "gives " + show(pService.callArray(pMethod, pArguments));
  } catch (const OXError& error) {
    return "raises " + error.getFunctionName() + ": " + error.getDescription();
  }
}

std::string expectationOf(const Json& pCase) {
  if (pCase.contains("gives")) return "gives " + pCase["gives"].get<std::string>();
  return "raises " + pCase["raises"].get<std::string>() + ": " + pCase["text"].get<std::string>();
}

std::string run(Service::Camera pCamera, const std::string& pMethod, const Json& pCase,
                const std::string& pFolder) {
  Service service(pCase.value("device", "") == "file" ? Service::Camera::File : pCamera);
  if (service.simulator) addSubscribersAndFrames(service);
  for (const Json& call : pCase.value("before", Json::array())) {
    OXValue::Array arguments;
    for (std::size_t i = 1; i < call.size(); ++i) arguments.push_back(valueOf(call[i]));
    service.callArray(call[0], arguments);
  }
  const std::string result = outcomeOf(service, pMethod, valueOf(pCase["with"], pFolder));
  if (service.simulator) {
    EXPECT_EQ(DeviceProbe(*service.simulator).complaints(), "");
  }
  return result;
}

void expectTable(const std::string& pName, Service::Camera pCamera) {
  const Folder folder;
  const CaptureLog log;
  const Json calls = table(pName);
  for (const auto& [signature, cases] : calls.items())
    for (const Json& entry : cases)
      EXPECT_EQ(run(pCamera, signature.substr(0, signature.find('(')), entry, folder.path),
                expectationOf(entry))
          << signature << " " << entry.dump();
}

TEST(PublishedCalls, ReturnAndThrowWhatTheTableSays) {
  expectTable("calls.json", Service::Camera::Simulator);
}

TEST(PublishedCalls, OfAFileCameraDoSoToo) {
  expectTable("calls_filecam.json", Service::Camera::File);
}

// Three have no argument and can't fail while the device works.
TEST(PublishedCalls, CoverEveryPublicationInCasesThatWorkAndThatFail) {
  const std::set<std::string> neverFail{"getActiveCamera()", "startFrameGrabber()",
                                        "stopFrameGrabber()"};
  const Json calls = table("calls.json");
  const Json publications = table("publications.json")["publications"];
  EXPECT_EQ(calls.size(), publications.size());
  for (const Json& publication : publications) {
    const std::string signature = signatureOf(publication);
    ASSERT_TRUE(calls.contains(signature)) << signature;
    int works = 0;
    int fails = 0;
    for (const Json& entry : calls[signature]) ++(entry.contains("gives") ? works : fails);
    EXPECT_GT(works, 0) << signature;
    EXPECT_TRUE(fails > 0 || neverFail.count(signature)) << signature;
  }
}

}  // namespace
}  // namespace OX::test
