/// A library with modules that a broker loads. It exports
///
///   extern "C" OX_API int _createModule(boost::shared_ptr<OX::OXBroker> pBroker);
///
/// which creates and registers its modules and returns 0 on success, and may export
///
///   extern "C" OX_API int _closeModule();
#pragma once

#include <boost/shared_ptr.hpp>
#include <string>

namespace OX {
class OXBroker;
}

namespace OX::daemon {

/// Never unloaded: threads of the library and objects of its types may exist until the process
/// ends. Thread-safe, as far as the library is.
class ModuleLibrary {
 public:
  /// Throws OXError that says why the library cannot be loaded.
  explicit ModuleLibrary(const std::string& pName);

  /// Where the system found it.
  std::string path() const;
  /// Whether both are the same file.
  bool operator==(const ModuleLibrary& pOther) const { return fHandle == pOther.fHandle; }

  /// Throws OXError when the library created no module.
  void createModule(const boost::shared_ptr<OXBroker>& pBroker) const;
  /// Call it after the broker has released the modules. Does nothing when the library exports no
  /// such function.
  void closeModule() const;

 private:
  std::string fName;
  void* fHandle;
};

}  // namespace OX::daemon
