#include <fcntl.h>
#include <sys/mman.h>

#include "platform/HandOver.h"
#include "platform/SharedMemory.h"
#include "platform/WithoutInterruption.h"

namespace sorvane {

Descriptor openMemoryFile() { return Descriptor(memfd_create("sorvinfo-kept", MFD_CLOEXEC)); }

bool growMemoryFile(int descriptor, std::size_t size) {
  return withoutInterruption(
             [&] { return fallocate(descriptor, 0, 0, static_cast<off_t>(size)); }) == 0;
}

}  // namespace sorvane
