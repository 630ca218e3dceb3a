#include "platform/SharedMemory.h"

#include <sys/mman.h>

#include <new>

#include "platform/HandOver.h"

namespace sorvane {

SharedMemory::SharedMemory(std::size_t bytes) : bytes_(nullptr), size_(bytes) {
  void* const begin =
      mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANON | MAP_NORESERVE, -1, 0);
  if (begin == MAP_FAILED) {
    throw std::bad_alloc();
  }
  bytes_ = static_cast<char*>(begin);
}

SharedMemory::~SharedMemory() { munmap(bytes_, size_); }

MemoryFile::MemoryFile() : file_(openMemoryFile()) {}

MemoryFile::~MemoryFile() {
  if (bytes_ != nullptr) {
    munmap(bytes_, size_);
  }
}

bool MemoryFile::growTo(std::size_t size) {
  if (!growMemoryFile(file_.number(), size)) {
    return false;
  }
  void* const begin = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, file_.number(), 0);
  if (begin == MAP_FAILED) {
    return false;
  }
  if (bytes_ != nullptr) {
    munmap(bytes_, size_);
  }
  bytes_ = static_cast<char*>(begin);
  size_ = size;
  return true;
}

}  // namespace sorvane
