// Starts what the options name and ends it in reverse: server, broker with its modules, libraries.
#include "daemon.h"

#include <ostream>
#include <string>
#include <vector>

#include <oxframework/oxbroker.h>
#include <oxframework/oxerror.h>
#include <oxframework/oxlog.h>
#include <oxframework/oxmodule.h>
#include <oxframework/oxserver.h>
#include <oxframework/oxservices.h>
#include "modulelibrary.h"

namespace OX::daemon {
namespace {

/// A broker with its services and the modules of libraries. At its end the broker releases the
/// modules before their libraries are closed.
class ModuleHost {
 public:
  explicit ModuleHost(const Options& pOptions)
      : fBroker(OXBroker::create({.name = "oxbroker", .maxThreads = pOptions.maxThreads})) {
    // Services before libraries: a module may need its preferences as soon as it is made.
    OXModule::createModule<OXMemory>(fBroker);
    OXPreferences::create(fBroker, pOptions.preferences);
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
    library.createModule(fBroker);
    fLibraries.push_back(library);
  }

  const boost::shared_ptr<OXBroker>& getBroker() const { return fBroker; }

 private:
  const boost::shared_ptr<OXBroker> fBroker;
  std::vector<ModuleLibrary> fLibraries;  ///< those that created their modules
};

}  // namespace

int serve(const Options& pOptions, std::ostream& pOut, std::ostream& pErr,
          const std::function<void()>& pWait) {
  try {
    ki::log::setLevel(pOptions.logLevel);
    ModuleHost host(pOptions);
    for (const std::string& library : pOptions.libraries) host.load(library);
    OXServer server(host.getBroker(), pOptions.limits);
    std::vector<std::string> addresses;
    for (const std::string& address : pOptions.addresses)
      addresses.push_back(server.listen(address));
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
