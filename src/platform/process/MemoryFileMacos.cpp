#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include "platform/HandOver.h"
#include "platform/SharedMemory.h"

namespace sorvane {

// A plain file without a name: what `shm_open` returns need not take `write`.
Descriptor openMemoryFile() {
  char name[] = "/tmp/sorvinfo-kept-XXXXXX";
  Descriptor file(mkstemp(name));
  if (file.isOpen()) {
    unlink(name);
    fcntl(file.number(), F_SETFD, FD_CLOEXEC);
  }
  return file;
}

bool growMemoryFile(int descriptor, std::size_t size) {
  return ftruncate(descriptor, static_cast<off_t>(size)) == 0;
}

}  // namespace sorvane
