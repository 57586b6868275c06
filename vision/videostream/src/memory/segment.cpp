// The broker maps the memory for writing before the seal against writing is set, and keeps no
// descriptor. Seals can't be taken off again, by anybody.
#include "segment.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

#include <oxframework/oxerror.h>

namespace OX {
namespace {

constexpr std::int64_t kLargestImage = 1280 * 960 * 3;  // k4VGA, the most bytes a pixel

[[noreturn]] void refuse(const char* pWhat) {
  raiseError(
      "OXVideoStream", "openShared",
      std::string("No shared memory: ") + pWhat + ": " + std::generic_category().message(errno));
}

}  // namespace

std::int64_t Segment::bytesOfSlot() {
  const std::int64_t page = ::sysconf(_SC_PAGESIZE);
  return (kLargestImage + page - 1) / page * page;
}

std::int64_t Segment::bytesOf(int pSlots) { return pSlots * bytesOfSlot(); }

Segment::Segment(int pSlots)
    : fCount(pSlots),
      fSlots(pSlots),
      fDescriptor(::memfd_create("oxvideo-stream", MFD_CLOEXEC | MFD_ALLOW_SEALING)) {
  if (!fDescriptor.isOpen()) refuse("memfd_create");
  if (::ftruncate(fDescriptor.number(), bytesOf(pSlots)) != 0) refuse("ftruncate");
  void* const data = ::mmap(nullptr, static_cast<std::size_t>(bytesOf(pSlots)),
                            PROT_READ | PROT_WRITE, MAP_SHARED, fDescriptor.number(), 0);
  if (data == MAP_FAILED) refuse("mmap");
  constexpr int kSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_FUTURE_WRITE | F_SEAL_SEAL;
  if (::fcntl(fDescriptor.number(), F_ADD_SEALS, kSeals) != 0) {
    const int error = errno;
    ::munmap(data, static_cast<std::size_t>(bytesOf(pSlots)));
    errno = error;
    refuse("F_ADD_SEALS");
  }
  fData = data;
}

Segment::~Segment() { ::munmap(fData, static_cast<std::size_t>(bytesOf(fCount))); }

FrameTarget Segment::target(int pSlot) const {
  return {static_cast<char*>(fData) + offsetOf(pSlot), static_cast<std::size_t>(bytesOfSlot())};
}

}  // namespace OX
