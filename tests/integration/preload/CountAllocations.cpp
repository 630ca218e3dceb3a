// Loaded before the C library into a name server under test: counts what it allocates, on all of
// its threads, in the first eight bytes of the file named by ALLOCATION_COUNT.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>

namespace {

using Count = std::atomic<std::uint64_t>;

// Null until the program begins: what the loading allocates is not counted.
Count* count = nullptr;

__attribute__((constructor)) void begin() {
  const char* const name = std::getenv("ALLOCATION_COUNT");
  const int file = name == nullptr ? -1 : open(name, O_RDWR | O_CLOEXEC);
  if (file < 0) {
    return;
  }
  void* const shared = mmap(nullptr, sizeof(Count), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  close(file);
  if (shared != MAP_FAILED) {
    count = static_cast<Count*>(shared);
  }
}

template <typename Function>
Function* counted(Function* /*self*/, const char* name) {
  if (count != nullptr) {
    ++*count;
  }
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" void* malloc(size_t bytes) { return counted(&malloc, "malloc")(bytes); }
extern "C" void* calloc(size_t number, size_t bytes) {
  return counted(&calloc, "calloc")(number, bytes);
}
extern "C" void* realloc(void* block, size_t bytes) {
  return counted(&realloc, "realloc")(block, bytes);
}
extern "C" void* aligned_alloc(size_t alignment, size_t bytes) {
  return counted(&aligned_alloc, "aligned_alloc")(alignment, bytes);
}
extern "C" int posix_memalign(void** block, size_t alignment, size_t bytes) {
  return counted(&posix_memalign, "posix_memalign")(block, alignment, bytes);
}
