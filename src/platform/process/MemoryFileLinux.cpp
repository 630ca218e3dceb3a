#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include "platform/HandOver.h"
#include "platform/SharedMemory.h"
#include "platform/WithoutInterruption.h"

namespace sorvane {

Descriptor openMemoryFile() { return Descriptor(memfd_create("sorvinfo-kept", MFD_CLOEXEC)); }

// The system looks at each page of what is asked for, so only the new ones are.
bool growMemoryFile(int descriptor, std::size_t size) {
  struct stat status {};
  const auto end = static_cast<off_t>(size);
  return fstat(descriptor, &status) == 0 &&
         (end <= status.st_size || withoutInterruption([&] {
                                     return fallocate(descriptor, 0, status.st_size,
                                                      end - status.st_size);
                                   }) == 0);
}

}  // namespace sorvane
