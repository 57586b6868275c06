/// A broker in this process with a video device that answers as a test wants and records its calls.
#pragma once

#include <boost/shared_ptr.hpp>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <oxframework/oxbroker.h>
#include <oxframework/oxdefinitions.h>
#include <oxframework/oxerror.h>
#include <oxframework/oxmodule.h>
#include <oxframework/oxserver.h>
#include <oxvalue/detail/oxfunctor.h>
#include "device/jsonvalues.h"
#include "scratch_folder.h"

namespace OX::test {

/// Accepts any call. Methods without an answer return an invalid value.
class FakeDevice : public OXModule {
 public:
  using Answer = std::function<OXValue(const OXValue& pArguments)>;

  FakeDevice(boost::shared_ptr<OXBroker> pBroker, bool pIsFileCamera,
             const char* pName = "OXVideoDevice")
      : OXModule(std::move(pBroker), pName) {
    answer("subscribeCamera", [](const OXValue& p) { return p[0]; });
    answer("subscribeCameras", [](const OXValue& p) { return p[0]; });
    if (!pIsFileCamera) return;
    functionName("setVideo", getName(), "");
    completeAndCheck(&FakeDevice::onlyListed, getCurrentMethodDescription());
    bindMethod(createFunctor(this, &FakeDevice::onlyListed));
  }

  /// What the broker lists for it; every call goes through execute().
  void onlyListed() {}

  void answer(const std::string& pMethod, Answer pAnswer) {
    const std::lock_guard guard(fGuard);
    fAnswers[pMethod] = std::move(pAnswer);
  }

  /// "getResolution[1]", in the order of the calls.
  std::vector<std::string> calls() const {
    const std::lock_guard guard(fGuard);
    return fCalls;
  }

  void execute(const std::string& pMethod, const OXValue& pArguments, OXValue& pResult) override {
    Answer answer;
    {
      const std::lock_guard guard(fGuard);
      fCalls.push_back(pMethod + cli::toJson(pArguments));
      answer = fAnswers[pMethod];
    }
    if (answer) pResult = answer(pArguments);
  }

 private:
  mutable std::mutex fGuard;
  std::map<std::string, Answer> fAnswers;
  std::vector<std::string> fCalls;
};

/// The broker, the device and a socket to both.
struct FakeBroker {
  explicit FakeBroker(bool pIsFileCamera = false)
      : broker(OXBroker::create()), device(new FakeDevice(broker, pIsFileCamera)), server(broker) {
    device->initModule();
    address = server.listen("unix:" + folder.file("broker"));
  }
  ~FakeBroker() {
    server.close();
    broker->shutdown();
  }

  ScratchFolder folder;
  boost::shared_ptr<OXBroker> broker;
  boost::shared_ptr<FakeDevice> device;
  OXServer server;
  std::string address;
};

/// A grey image as getImageRemote returns it.
inline OXValue imageReply(int pTimestampUs, int pColorSpace = kRGB) {
  const int layers = getLayersFromColorSpace(pColorSpace);
  const std::string pixels(static_cast<std::size_t>(160 * 120 * layers), '\x80');
  OXValue binary;
  binary.SetBinary(pixels.data(), static_cast<int>(pixels.size()));
  return OXValue::array(160, 120, layers, pColorSpace, 0, pTimestampUs, binary, 0, 0.0f, 0.0f, 0.0f,
                        0.0f);
}

}  // namespace OX::test
