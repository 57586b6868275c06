/// What libvideoinput.so exports: the two entry points that a broker calls, and global objects that
/// other libraries of the process link against. A broker calls the entry points on one thread only;
/// the objects have no lock.
#pragma once

#include <pthread.h>

#include <boost/shared_ptr.hpp>
#include <map>
#include <string>

#include <oxframework/oxapi.h>
#include <oxframework/oxbroker.h>
#include <oxframework/oxvalue.h>

extern "C" {

/// Reads VideoInput.xml through the broker's preference service and creates the camera module that
/// it names, which the broker then owns. Returns 0 when a module was created, 1 when none was (a
/// record in the log says why). There is no default source. Throws OXError only if the module's own
/// construction does.
OX_API int _createModule(boost::shared_ptr<OX::OXBroker> pBroker);

/// Does nothing and returns 0: the module ends when the broker releases it.
OX_API int _closeModule();
}

/// The sources that a preference file can name, filled by _createModule. The label keeps the
/// compiler from adding the ABI tag of std::string to the symbol.
extern OX_API std::map<std::string, int> moduleNameMap __asm__("moduleNameMap");
/// The preference file as it was read.
extern OX_API OX::OXValue fPreferences;

// Kept for libraries that link against them; nothing here reads or writes them.
extern OX_API int actualModule;
extern OX_API int moduleNameId;
extern OX_API bool _videoinput_running;
extern OX_API pthread_mutex_t _videoinput_termination;
static_assert(sizeof(pthread_mutex_t) == 40);
