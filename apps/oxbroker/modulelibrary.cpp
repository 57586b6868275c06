// Loading of module libraries. Failures of the system's loader and of the library's own functions
// are errors with the library's name: they are all that a user sees of a module that is missing.
#include "modulelibrary.h"

#include <dlfcn.h>
#include <link.h>

#include <filesystem>
#include <system_error>

#include <oxframework/oxbroker.h>
#include <oxframework/oxerror.h>

namespace OX::daemon {
namespace {

using CreateModule = int (*)(boost::shared_ptr<OXBroker>);
using CloseModule = int (*)();

constexpr char kProgram[] = "oxbroker";
constexpr char kFunction[] = "load";

/// The path for dlopen(). A name without a slash is searched for in the folder lib next to this
/// program's own folder first, then by the system.
std::string findLibrary(const std::string& pName) {
  if (pName.find('/') != std::string::npos) return pName;
  std::error_code error;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
  const auto beside = program.parent_path().parent_path() / "lib" / pName;
  return !error && std::filesystem::exists(beside, error) ? beside.string() : pName;
}

}  // namespace

ModuleLibrary::ModuleLibrary(const std::string& pName)
    : fName(pName), fHandle(::dlopen(findLibrary(pName).c_str(), RTLD_NOW | RTLD_LOCAL)) {
  if (!fHandle) raiseError(kProgram, kFunction, "Cannot load " + fName + ": " + ::dlerror());
}

std::string ModuleLibrary::path() const {
  const link_map* map = nullptr;
  return ::dlinfo(fHandle, RTLD_DI_LINKMAP, &map) == 0 && map ? map->l_name : fName;
}

void ModuleLibrary::createModule(const boost::shared_ptr<OXBroker>& pBroker) const {
  const auto create = reinterpret_cast<CreateModule>(::dlsym(fHandle, "_createModule"));
  if (!create)
    raiseError(kProgram, kFunction, "Cannot load " + fName + ": it has no function _createModule");
  try {
    const int result = create(pBroker);
    if (result != 0)
      raiseError(kProgram, kFunction,
                 fName + " made no module: its _createModule returned " + std::to_string(result));
  } catch (const OXError&) {
    throw;
  } catch (const std::exception& error) {
    raiseError(kProgram, kFunction, fName + " made no module: " + error.what());
  }
}

void ModuleLibrary::closeModule() const {
  if (const auto close = reinterpret_cast<CloseModule>(::dlsym(fHandle, "_closeModule"))) close();
}

}  // namespace OX::daemon
