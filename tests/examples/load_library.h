/// Loads a module's library into a broker, as the daemon does.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <oxframework/oxbroker.h>

namespace OX::test {

inline int loadLibrary(const char* pLibrary, const boost::shared_ptr<OXBroker>& pBroker) {
  void* const library = ::dlopen(pLibrary, RTLD_NOW | RTLD_LOCAL);
  if (!library) {
    ADD_FAILURE() << ::dlerror();
    return -1;
  }
  using Create = int (*)(boost::shared_ptr<OXBroker>);
  return reinterpret_cast<Create>(::dlsym(library, "_createModule"))(pBroker);
}

}  // namespace OX::test
