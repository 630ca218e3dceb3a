// Loaded before the C library into a name server under test: the time of day is as many seconds
// ahead as the file named by SHIFTED_CLOCK says in its first eight bytes, which may change at any
// time. If SHIFTED_STEADY_CLOCK names a file, that one does the same to the steady clock of the
// process that was started, but not to that of its children.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>

namespace {

using Shift = std::atomic<std::int64_t>;

const Shift* shift(const char* variable) {
  const char* const name = std::getenv(variable);
  const int file = name != nullptr ? ::open(name, O_RDONLY | O_CLOEXEC) : -1;
  void* const shared =
      file < 0 ? MAP_FAILED : ::mmap(nullptr, sizeof(Shift), PROT_READ, MAP_SHARED, file, 0);
  if (file >= 0) {
    ::close(file);
  }
  return shared == MAP_FAILED ? nullptr : static_cast<const Shift*>(shared);
}

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
  static auto* const next =
      reinterpret_cast<int (*)(clockid_t, timespec*)>(dlsym(RTLD_NEXT, "clock_gettime"));
  static const Shift* const ahead = shift("SHIFTED_CLOCK");
  static const Shift* const steadyAhead = shift("SHIFTED_STEADY_CLOCK");
  static const pid_t started = getpid();
  const int status = next(clock, time);
  if (status == 0 && clock == CLOCK_REALTIME && ahead != nullptr) {
    time->tv_sec += ahead->load(std::memory_order_acquire);
  }
  if (status == 0 && clock == CLOCK_MONOTONIC && steadyAhead != nullptr && getpid() == started) {
    time->tv_sec += steadyAhead->load(std::memory_order_acquire);
  }
  return status;
}
