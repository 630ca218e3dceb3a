#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "platform/HandOver.h"
#include "platform/SharedMemory.h"

namespace sorvane {

Descriptor openMemoryFile() {
  const std::string name = "/sorvinfo-kept-" + std::to_string(getpid());
  Descriptor file(shm_open(name.c_str(), O_RDWR | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR));
  if (file.isOpen()) {
    shm_unlink(name.c_str());
    fcntl(file.number(), F_SETFD, FD_CLOEXEC);
  }
  return file;
}

bool growMemoryFile(int descriptor, std::size_t size) {
  return ftruncate(descriptor, static_cast<off_t>(size)) == 0;
}

}  // namespace sorvane
