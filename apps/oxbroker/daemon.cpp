// Starts what the options name and ends it in reverse: server, broker with its modules, libraries.
#include "daemon.h"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <ostream>
#include <string>
#include <system_error>
#include <vector>

#include <oxframework/oxbroker.h>
#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include <oxframework/oxmodule.h>
#include <oxframework/oxserver.h>
#include <oxframework/oxservices.h>
#include "modulelibrary.h"
#include "sourcepreferences.h"

namespace OX::daemon {
namespace {

constexpr const char* kCameraLibrary = "libvideoinput.so";
constexpr const char* kStreamLibrary = "libvideostream.so";

OXBrokerOptions brokerOptions(const Options& pOptions) {
  return {.name = "oxbroker",
          .maxThreads = pOptions.maxThreads,
          .settings = {{"stream.perConnection", pOptions.maxStreams},
                       {"stream.sharedMiBPerClient", pOptions.maxSharedMiB},
                       {"stream.sharedMiB", pOptions.maxSharedMiBInAll}}};
}

/// A broker with its services and the modules of libraries. At its end the broker releases the
/// modules before their libraries are closed.
class ModuleHost {
 public:
  explicit ModuleHost(const Options& pOptions)
      : fBroker(OXBroker::create(brokerOptions(pOptions))),
        fPreferences(
            boost::make_shared<SourcePreferences>(fBroker, pOptions.preferences, pOptions.source)) {
    // Services before libraries: a module may need its preferences as soon as it is made.
    OXModule::createModule<OXMemory>(fBroker);
    fPreferences->initModule();
    fPreferences->init();
  }

  ~ModuleHost() {
    fBroker->shutdown();
    for (auto library = fLibraries.rbegin(); library != fLibraries.rend(); ++library)
      library->closeModule();
  }

  ModuleHost(const ModuleHost&) = delete;
  ModuleHost& operator=(const ModuleHost&) = delete;

  void load(const std::string& pName) {
    const ModuleLibrary library(pName);
    try {
      library.createModule(fBroker);
    } catch (const OXError& error) {
      const std::string advice = fPreferences->getAdvice();
      if (advice.empty()) throw;
      raiseError(error.getModuleName(), error.getFunctionName(),
                 error.getDescription() + "\n  " + advice);
    }
    fLibraries.push_back(library);
  }

  /// Loads the library of streams if it lies beside that of the cameras and was not named. Who has
  /// not asked for it is served without it too: what goes wrong is only logged.
  void loadStreams() {
    const std::filesystem::path path = xPathOfStreams();
    if (path.empty()) return;
    try {
      const ModuleLibrary library(path.string());
      if (std::find(fLibraries.begin(), fLibraries.end(), library) != fLibraries.end()) return;
      library.createModule(fBroker);
      fLibraries.push_back(library);
    } catch (const OXError& error) {
      ki::log::log(ki::log::kWarning, "oxbroker", error.what(), "", "loadStreams", 0);
    }
  }

  const boost::shared_ptr<OXBroker>& getBroker() const { return fBroker; }
  const SourcePreferences& getPreferences() const { return *fPreferences; }

 private:
  std::filesystem::path xPathOfStreams() const {
    for (const ModuleLibrary& library : fLibraries) {
      const std::filesystem::path path = library.path();
      std::error_code error;
      const auto beside = path.parent_path() / kStreamLibrary;
      if (path.filename() == kCameraLibrary && std::filesystem::exists(beside, error))
        return beside;
    }
    return {};
  }

  const boost::shared_ptr<OXBroker> fBroker;
  const boost::shared_ptr<SourcePreferences> fPreferences;
  std::vector<ModuleLibrary> fLibraries;  ///< those that created their modules
};

/// Another address like the one that is in use.
std::string neighbour(const std::string& pAddress) {
  const std::size_t colon = pAddress.rfind(':');
  int port = 0;
  const char* const end = pAddress.data() + pAddress.size();
  const bool isUnix = pAddress.starts_with("unix:");
  if (isUnix || std::from_chars(pAddress.data() + colon + 1, end, port).ptr != end)
    return pAddress + "2";
  return pAddress.substr(0, colon + 1) + std::to_string(port < 65535 ? port + 1 : port - 1);
}

std::string listen(OXServer& pServer, const std::string& pAddress) {
  try {
    return pServer.listen(pAddress);
  } catch (const OXError& error) {
    const std::string inUse = std::generic_category().message(EADDRINUSE);
    if (!error.getDescription().ends_with(inUse)) throw;
    const std::string other = neighbour(pAddress);
    raiseError(error.getModuleName(), error.getFunctionName(),
               error.getDescription() + "\n  " + pAddress + " is in use; use another one with " +
                   "--listen " + other + ", and OXVIDEO_BROKER=" + other + " for oxvideo");
  }
}

}  // namespace

int serve(const Options& pOptions, std::ostream& pOut, std::ostream& pErr,
          const std::function<void()>& pWait) {
  try {
    ki::log::setLevel(pOptions.logLevel);
    ModuleHost host(pOptions);
    for (const std::string& library : pOptions.libraries) host.load(library);
    if (pOptions.withStreams) host.loadStreams();
    if (const std::string notice = host.getPreferences().getNotice(); !notice.empty())
      pErr << "oxbroker: " << notice << std::endl;
    OXServer server(host.getBroker(), pOptions.limits);
    std::vector<std::string> addresses;
    for (const std::string& address : pOptions.addresses)
      addresses.push_back(listen(server, address));
    // Announced together: whoever reads one line may rely on all addresses.
    for (const std::string& address : addresses) pOut << "listening on " << address << "\n";
    pOut.flush();
    pWait();
    return kDone;
  } catch (const std::exception& error) {
    pErr << "oxbroker: " << error.what() << "\n";
    return kFailed;
  }
}

}  // namespace OX::daemon
