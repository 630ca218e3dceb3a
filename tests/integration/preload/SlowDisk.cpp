// Loaded before the C library into a name server under test: flushing a file takes as long as the
// file named by SLOW_DISK_GATE exists. "<gate>.waiting" tells that somebody has begun to wait.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

extern "C" int fsync(int descriptor) {
  static auto* const next = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "fsync"));
  if (const char* const gate = std::getenv("SLOW_DISK_GATE")) {
    while (::access(gate, F_OK) == 0) {
      ::close(::open((std::string(gate) + ".waiting").c_str(), O_WRONLY | O_CREAT, 0600));
      ::usleep(1000);
    }
  }
  return next(descriptor);
}
