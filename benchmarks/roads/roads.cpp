// Records which functions one request enters and leaves, for script/roads, which builds everything
// with -finstrument-functions: the compiler then calls the hooks below at both ends of a function.
// The device is only used through the plug-in's entry point and published methods, so that the
// sources may be moved and renamed between two measurements.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include <oxframework/oxbroker.h>
#include <oxframework/oxclock.h>
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include <oxframework/oxservices.h>
#include <oxvision/videoinput.h>

namespace {

// Plain memory: the hooks must not call anything that is instrumented itself. The pixel loops of
// one small frame make about a million events.
constexpr std::size_t kMaxEvents = std::size_t{1} << 23;
void* gEvents[kMaxEvents];  ///< the function entered, null for a return
std::size_t gEventCount = 0;
thread_local bool tRecords = false;  ///< other threads of the broker are not part of the request

__attribute__((no_instrument_function)) void record(void* pEntered) {
  if (tRecords && gEventCount < kMaxEvents) gEvents[gEventCount++] = pEntered;
}

}  // namespace

extern "C" {
__attribute__((no_instrument_function, visibility("default"))) void __cyg_profile_func_enter(
    void* pFunction, void* /*pCaller*/) {
  record(pFunction);
}
__attribute__((no_instrument_function, visibility("default"))) void __cyg_profile_func_exit(
    void* /*pFunction*/, void* /*pCaller*/) {
  record(nullptr);
}
}

namespace {

using namespace OX;

constexpr int kWidth = 320;
constexpr int kHeight = 240;
constexpr unsigned int kLongerThanAPeriodUs = 100'000;  // of the 30 frames a second asked for

[[noreturn]] void fail(const std::string& pText) {
  std::fprintf(stderr, "roads: %s\n", pText.c_str());
  std::exit(1);
}

/// The plug-in in a broker of its own, as the daemon loads it.
class Device {
 public:
  Device(const std::filesystem::path& pFolder, const std::string& pSource) {
    std::ofstream(pFolder / "VideoInput.xml")
        << "<preferences module=\"VideoInput\"><entry name=\"source\" description=\"\" value=\""
        << pSource << "\"/></preferences>";
    OXModule::createModule<OXMemory>(fBroker);
    OXPreferences::create(fBroker, pFolder.string());
    if (_createModule(fBroker) != 0) fail("the plug-in made no " + pSource);
  }
  ~Device() { fBroker->shutdown(); }
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  template <typename... Arguments>
  OXValue call(const std::string& pMethod, const Arguments&... pArguments) {
    return fBroker->call("OXVideoDevice", pMethod, OXValue::array(pArguments...));
  }

  /// The same, with its functions recorded and then printed.
  template <typename... Arguments>
  OXValue travel(const char* pRoad, const std::string& pMethod, const Arguments&... pArguments) {
    const OXValue arguments = OXValue::array(pArguments...);
    gEventCount = 0;
    tRecords = true;
    OXValue result = fBroker->call("OXVideoDevice", pMethod, arguments);
    tRecords = false;
    xPrint(pRoad);
    return result;
  }

  std::string subscribe() { return call("subscribeCamera", "a", 0, kQVGA, kRGB, 30).toString(); }

 private:
  /// "road NAME", then "> INDEX" for an entry and "<" for a return. "= FILE OFFSET" precedes the
  /// first entry of each function and says where its code is.
  static void xPrint(const char* pRoad) {
    if (gEventCount == 0) fail("nothing was recorded: build with script/roads");
    if (gEventCount == kMaxEvents) fail(std::string("too many events: ") + pRoad);
    std::map<void*, std::size_t> known;
    std::printf("road %s\n", pRoad);
    for (std::size_t i = 0; i < gEventCount; ++i) {
      if (!gEvents[i]) {
        std::puts("<");
        continue;
      }
      const auto [function, isNew] = known.emplace(gEvents[i], known.size());
      Dl_info code{};
      if (isNew && ::dladdr(gEvents[i], &code) == 0) fail("a function of no file");
      if (isNew)
        std::printf("= %s %#tx\n", code.dli_fname,
                    static_cast<char*>(gEvents[i]) - static_cast<char*>(code.dli_fbase));
      std::printf("> %zu\n", function->second);
    }
  }

  boost::shared_ptr<OXBroker> fBroker = OXBroker::create();
};

OXValue frame() {
  OXValue pixels;
  pixels.SetBinary(std::vector<char>(kWidth * kHeight * 3, 77).data(), kWidth * kHeight * 3);
  return pixels;
}

/// Pushes a frame so late that no earlier image is fresh enough for the next request.
void push(Device& pDevice) {
  ki::os::usleep(kLongerThanAPeriodUs);
  if (!pDevice.call("putImage", 0, kWidth, kHeight, frame()).toBool()) fail("a frame was refused");
}

/// Requests an image, recorded, and checks that it is not pEarlier.
void travelToImage(const char* pRoad, Device& pDevice, const std::string& pId,
                   const OXValue& pEarlier) {
  constexpr int kStamp = 5;  // the microseconds' lower half
  const OXValue image = pDevice.travel(pRoad, "getImageRemote", pId);
  if (!image.isValid() || image[kStamp].toInt() == pEarlier[kStamp].toInt())
    fail(std::string("no new image: ") + pRoad);
}

// Each request is made once before it is recorded: what only the first one does is not part of it.
void travelAll(const std::filesystem::path& pFolder) {
  const std::string recording = (pFolder / "a.oxv").string();
  {
    Device device(pFolder, "SimulatorCam");
    const std::string id = device.subscribe();
    push(device);
    OXValue earlier = device.call("getImageRemote", id);
    push(device);
    if (!device.travel("push", "putImage", 0, kWidth, kHeight, frame()).toBool()) fail("no push");
    travelToImage("remote image", device, id, earlier);

    device.call("setResolution", id, kVGA);
    device.call("setResolution", id, kQVGA);
    if (!device.travel("setResolution", "setResolution", id, kVGA).toBool()) fail("no change");
    device.call("setResolution", id, kQVGA);

    device.call("recordVideo", id, recording, 10, 1);
    push(device);
    earlier = device.call("getImageRemote", id);
    push(device);
    travelToImage("recorded frame", device, id, earlier);
    device.call("stopVideo", id);
    if (std::filesystem::file_size(recording) < 2 * kWidth * kHeight * 2)
      fail("a frame is missing");
  }
  Device device(pFolder, "FileCam");
  device.call("setVideo", recording, OXValue(), true, 0, 0);
  const std::string id = device.subscribe();
  const OXValue earlier = device.call("getImageRemote", id);
  ki::os::usleep(kLongerThanAPeriodUs);
  device.call("nextImage");
  travelToImage("replayed frame", device, id, earlier);
}

}  // namespace

/// roads FOLDER: the files that it writes go there.
int main(int pCount, char** pArguments) {
  if (pCount != 2) fail("usage: roads FOLDER");
  ki::log::setLevel(0);
  try {
    travelAll(pArguments[1]);
  } catch (const OXError& error) {
    fail(error.toString());
  }
}
