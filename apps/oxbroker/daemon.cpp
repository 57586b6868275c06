// Starts what the options name and ends it in reverse: server, broker with its modules, libraries.
#include "daemon.h"

#include <boost/make_shared.hpp>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <optional>
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

  /// With pWithStreams the library of streams, if it lies beside that of the cameras, follows it at
  /// once: modules of later libraries may need it.
  void load(const std::string& pName, bool pWithStreams) {
    const ModuleLibrary library(pName);
    if (fStreams && library == *fStreams) return;  // named all the same
    try {
      library.createModule(fBroker);
    } catch (const OXError& error) {
      const std::string advice = fPreferences->getAdvice();
      if (advice.empty()) throw;
      raiseError(error.getModuleName(), error.getFunctionName(),
                 error.getDescription() + "\n  " + advice);
    }
    fLibraries.push_back(library);
    if (pWithStreams) xLoadStreams(library.path());
  }

  const boost::shared_ptr<OXBroker>& getBroker() const { return fBroker; }
  const SourcePreferences& getPreferences() const { return *fPreferences; }

 private:
  /// Who has not asked for the streams is served without them too: what goes wrong is only logged.
  void xLoadStreams(const std::filesystem::path& pLoaded) {
    const std::filesystem::path path = pLoaded.parent_path() / kStreamLibrary;
    std::error_code error;
    if (pLoaded.filename() != kCameraLibrary || !std::filesystem::exists(path, error)) return;
    try {
      const ModuleLibrary library(path.string());
      library.createModule(fBroker);
      fLibraries.push_back(library);
      fStreams = library;
    } catch (const OXError& failure) {
      ki::log::log(ki::log::kWarning, "oxbroker", failure.what(), "", "loadStreams", 0);
    }
  }

  const boost::shared_ptr<OXBroker> fBroker;
  const boost::shared_ptr<SourcePreferences> fPreferences;
  std::vector<ModuleLibrary> fLibraries;  ///< those that created their modules
  std::optional<ModuleLibrary> fStreams;  ///< loaded without having been named
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
    for (const std::string& library : pOptions.libraries) host.load(library, pOptions.withStreams);
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
