// Closing needs the system's header, which the class spares its users.
#include <oxframework/oxdescriptor.h>

#include <unistd.h>

namespace OX {

OXDescriptor::~OXDescriptor() {
  if (fNumber >= 0) ::close(fNumber);
}

}  // namespace OX
