/// A library with modules, as a broker loads it. It exports
///
///   extern "C" OX_API int _createModule(boost::shared_ptr<OX::OXBroker> pBroker);
///
/// which makes and registers its modules and gives 0 when it has, and may export
///
///   extern "C" OX_API int _closeModule();
#pragma once

#include <boost/shared_ptr.hpp>
#include <string>

namespace OX {
class OXBroker;
}

namespace OX::daemon {

/// Never unloads: threads of the library, and objects of its types, may live to the process's end.
class ModuleLibrary {
 public:
  /// Throws OXError that says why the library can't be loaded.
  explicit ModuleLibrary(const std::string& pName);

  /// Throws OXError when no module was made.
  void createModule(const boost::shared_ptr<OXBroker>& pBroker) const;
  /// Called after the broker has let the modules go.
  void closeModule() const;

 private:
  std::string fName;
  void* fHandle;
};

}  // namespace OX::daemon
