/// A fixture: a broker with the probe module, served on a port of its own.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include <oxframework/oxremotebroker.h>
#include <oxframework/oxserver.h>
#include <oxframework/oxservices.h>
#include "support/capture_log.h"
#include "support/probe_module.h"

namespace OX::test {

/// Waits for a condition that another thread is about to meet; only a failure takes long.
template <typename Condition>
bool eventually(Condition pCondition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (!pCondition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::yield();
  }
  return true;
}

inline std::string failureOf(const std::function<void()>& pAction) {
  try {
    pAction();
  } catch (const OXError& error) {
    return error.getModuleName() + ": " + error.what();
  }
  return "none";
}

inline std::string socketPath(const std::string& pName) {
  return ::testing::TempDir() + "ox_" + std::to_string(::getpid()) + "_" + pName;
}

class ServedBroker : public ::testing::Test {
 protected:
  void start(const OXWireLimits& pLimits = {}, int pMaxThreads = 128) {
    broker = OXBroker::create({.name = "test", .maxThreads = pMaxThreads});
    OXModule::createModule<OXMemory>(broker);
    probe = OXModule::createModule<ProbeModule>(broker);
    server = std::make_unique<OXServer>(broker, pLimits);
    address = server->listen("127.0.0.1:0");
  }

  void TearDown() override {
    if (probe) probe->release(1000);
    server.reset();
    probe.reset();
    if (broker) broker->shutdown();
  }

  boost::shared_ptr<OXRemoteBroker> connect() const { return OXRemoteBroker::connect(address); }

  /// "serves" when a further client gets its answer.
  std::string service() const {
    const std::string failure =
        failureOf([&] { connect()->call("Probe", "echo", OXValue::array(1)); });
    return failure == "none" ? "serves" : failure;
  }

  /// Subscribes the probe to the end of clients.
  void watchDisconnects() {
    OXMemoryProxy(broker).subscribeToEvent("ClientDisconnected", "Probe", "onEvent");
  }

  bool awaitRecord(const std::string& pPart) const {
    return eventually([&] {
      for (const auto& record : log.all())
        if (record.message.find(pPart) != std::string::npos) return true;
      return false;
    });
  }

  CaptureLog log;
  boost::shared_ptr<OXBroker> broker;
  boost::shared_ptr<ProbeModule> probe;
  std::unique_ptr<OXServer> server;
  std::string address;
};

}  // namespace OX::test
