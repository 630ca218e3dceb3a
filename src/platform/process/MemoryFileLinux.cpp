#include <sys/mman.h>

#include "platform/HandOver.h"

namespace sorvane {

Descriptor openMemoryFile() { return Descriptor(memfd_create("sorvinfo-kept", MFD_CLOEXEC)); }

}  // namespace sorvane
