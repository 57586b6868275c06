// SCM_RIGHTS, whose data are not aligned and so are copied.
#include "descriptormessage.h"

#include <cstring>

namespace OX::wire {

void DescriptorMessage::attach(msghdr& pMessage, int pDescriptor) {
  pMessage.msg_control = fRoom;
  pMessage.msg_controllen = sizeof fRoom;
  cmsghdr* const header = CMSG_FIRSTHDR(&pMessage);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof pDescriptor);
  std::memcpy(CMSG_DATA(header), &pDescriptor, sizeof pDescriptor);
}

void DescriptorMessage::makeRoom(msghdr& pMessage) {
  pMessage.msg_control = fRoom;
  // Not its size, which is rounded up and would hold two.
  pMessage.msg_controllen = CMSG_LEN(sizeof(int));
}

OXDescriptor DescriptorMessage::take(msghdr& pMessage) {
  const cmsghdr* const header = CMSG_FIRSTHDR(&pMessage);
  int descriptor = -1;
  if (header && header->cmsg_level == SOL_SOCKET && header->cmsg_type == SCM_RIGHTS &&
      header->cmsg_len >= CMSG_LEN(sizeof descriptor))
    std::memcpy(&descriptor, CMSG_DATA(header), sizeof descriptor);
  return OXDescriptor(descriptor);
}

}  // namespace OX::wire
