/// One descriptor beside the bytes of a message of a Unix-domain socket.
#pragma once

#include <sys/socket.h>

#include <oxframework/oxdescriptor.h>

namespace OX::wire {

/// Outlives the msghdr that it was attached to.
class DescriptorMessage {
 public:
  /// Sends a descriptor with a message. Its owner stays the same.
  void attach(msghdr& pMessage, int pDescriptor);
  /// Leaves room for one in a message to be received; the system closes any others.
  void makeRoom(msghdr& pMessage);
  /// The descriptor that was received; none without.
  static OXDescriptor take(msghdr& pMessage);

 private:
  alignas(cmsghdr) char fRoom[CMSG_SPACE(sizeof(int))] = {};
};

}  // namespace OX::wire
