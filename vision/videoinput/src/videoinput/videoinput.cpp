// The entry points of the plug-in. The preference file decides which camera module is created;
// without a usable choice there is no module, since a wrong camera is worse than none. Whatever
// goes wrong is logged and returned as 1: the broker goes on without this library.
#include <oxvision/videoinput.h>

#include <boost/make_shared.hpp>

#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include <oxframework/oxmodule.h>
#include <oxframework/oxproxies.h>
#include "oxvisionfilecam.h"
#include "oxvisionsimulatorcam.h"
#include "oxvisionvideostatus/oxvideostatus.h"

namespace {

constexpr const char* kPreferenceModule = "VideoInput";

// The numbers are those of moduleNameMap, which other libraries read.
enum Source { kMioCam = 0, kUsbCam = 1, kSimulatorCam = 2, kFileCam = 3 };

void log(int pLevel, const std::string& pText) {
  ki::log::log(pLevel, "vision.videoinput", pText, "", "_createModule", 0);
}

int refuse(const std::string& pText) {
  log(ki::log::kError, pText);
  return 1;
}

// Code in this library finds brokers through the manager of the process, which must therefore be
// the one that this broker belongs to.
void registerBroker(const boost::shared_ptr<OX::OXBroker>& pBroker) {
  OX::OXBrokerManager::setInstance(pBroker->getBrokerManager().lock());
  OX::OXBrokerManager::getInstance()->addBroker(pBroker);
}

void readPreferences(const boost::shared_ptr<OX::OXBroker>& pBroker) {
  try {
    const auto proxy =
        boost::make_shared<OX::OXPreferencesProxy>(pBroker->getProxy("OXPreferences", 0));
    fPreferences = proxy->readPrefFile(kPreferenceModule, true);
  } catch (const OX::OXError& error) {
    log(ki::log::kWarning, error.toString());
  }
}

// The third field of the first entry is the choice, whatever the entry is called. Empty if there is
// none.
std::string sourceName() {
  const OX::OXValue& preferences = fPreferences;
  try {
    return preferences[0][2].toString();
  } catch (const OX::OXError&) {
    return {};
  }
}

}  // namespace

OX::OXValue fPreferences;
std::map<std::string, int> moduleNameMap;
int actualModule = 0;
int moduleNameId = 0;
bool _videoinput_running = false;
pthread_mutex_t _videoinput_termination{};

int _createModule(boost::shared_ptr<OX::OXBroker> pBroker) {
  registerBroker(pBroker);
  moduleNameMap["MioCam"] = kMioCam;
  moduleNameMap["USBCam"] = kUsbCam;
  moduleNameMap["SimulatorCam"] = kSimulatorCam;
  moduleNameMap["FileCam"] = kFileCam;
  readPreferences(pBroker);
  const std::string name = sourceName();
  if (name.empty())
    return refuse(
        "VideoInput: Failed to read VideoInput.xml preference file.\n"
        "No module will be loaded");
  const auto found = moduleNameMap.find(name);
  if (found == moduleNameMap.end())
    return refuse("VideoInput: Unknown module name: " + name + "\nNo module will be loaded");
  switch (found->second) {
    case kSimulatorCam:
      log(ki::log::kVerbose, "VideoInput: loading SimulatorCam");
      OX::OXModule::createModule<OX::OXVisionSimulatorCam>(pBroker);
      OX::OXModule::createModule<OX::OXVideoStatus>(pBroker);
      return 0;
    case kFileCam:
      log(ki::log::kVerbose, "VideoInput: loading FileCam");
      OX::OXModule::createModule<OX::OXVisionFileCam>(pBroker);
      OX::OXModule::createModule<OX::OXVideoStatus>(pBroker);
      return 0;
    case kMioCam:
      return refuse(
          "Could not load MioCam: library was not build with I_AM_A_ROBOT compilation flag");
    default:
      return refuse("VideoInput: unknown moduleId: " + std::to_string(found->second));
  }
}

int _closeModule() { return 0; }
