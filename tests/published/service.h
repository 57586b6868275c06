/// The device behind a server, and a connection to it: what a client in another process has.
#pragma once

#include <unistd.h>

#include <memory>

#include <oxframework/oxremotebroker.h>
#include <oxframework/oxserver.h>
#include "oxvisionfilecam.h"
#include "support/device_fixture.h"

namespace OX::test {

class Service {
 public:
  enum class Camera { Simulator, File };

  explicit Service(Camera pCamera = Camera::Simulator) {
    OXModule::createModule<OXMemory>(broker);
    if (pCamera == Camera::File)
      OXModule::createModule<OXVisionFileCam>(broker);
    else
      simulator = OXModule::createModule<OXVisionSimulatorCam>(broker);
    server = std::make_unique<OXServer>(broker);
    address =
        server->listen("unix:" + testing::TempDir() + "ox_service_" + std::to_string(::getpid()));
    client = connect();
  }
  ~Service() {
    client.reset();
    server.reset();
    simulator.reset();
    broker->shutdown();
  }
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  boost::shared_ptr<OXRemoteBroker> connect() const { return OXRemoteBroker::connect(address); }

  /// Calls over the connection.
  OXValue callArray(const std::string& pMethod, const OXValue& pArguments) {
    return client->call("OXVideoDevice", pMethod, pArguments);
  }
  template <typename... Arguments>
  OXValue call(const std::string& pMethod, Arguments&&... pArguments) {
    return callArray(pMethod, OXValue::array(std::forward<Arguments>(pArguments)...));
  }

  FakeClock clock;
  boost::shared_ptr<OXBroker> broker = OXBroker::create();
  boost::shared_ptr<OXVisionSimulatorCam> simulator;  ///< null for a file camera
  std::unique_ptr<OXServer> server;
  std::string address;
  boost::shared_ptr<OXRemoteBroker> client;
};

/// A frame whose pixels all differ from their neighbours; pSeed distinguishes cameras and moments.
inline OXValue patternFrame(int pWidth, int pHeight, int pSeed) {
  std::vector<unsigned char> pixels(static_cast<std::size_t>(pWidth * pHeight * 3));
  for (std::size_t i = 0; i < pixels.size(); ++i)
    pixels[i] = static_cast<unsigned char>(i / 3 % 251 + i % 3 * 40 + static_cast<unsigned>(pSeed));
  OXValue frame;
  frame.SetBinary(pixels.data(), static_cast<int>(pixels.size()));
  return frame;
}

}  // namespace OX::test
