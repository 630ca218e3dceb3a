// Loaded before the C library into a name server under test: flushing a file takes as long as the
// file named by SLOW_DISK_GATE exists. The file "<gate>.waiting" tells that somebody waits.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>

namespace {

void tellOfWaiting(const std::string& gate) {
  const int file = ::open((gate + ".waiting").c_str(), O_WRONLY | O_CREAT, 0600);
  [[maybe_unused]] const ssize_t written = ::write(file, "waiting", 7);
  ::close(file);
}

}  // namespace

extern "C" int fsync(int descriptor) {
  static auto* const next = reinterpret_cast<int (*)(int)>(dlsym(RTLD_NEXT, "fsync"));
  if (const char* const gate = std::getenv("SLOW_DISK_GATE")) {
    const int changes = ::inotify_init1(IN_CLOEXEC);
    // Not to be watched: it is gone. IN_ATTRIB comes when it is removed, too.
    while (::inotify_add_watch(changes, gate, IN_ATTRIB) >= 0) {
      tellOfWaiting(gate);
      std::array<char, 4096> events;
      [[maybe_unused]] const ssize_t length = ::read(changes, events.data(), events.size());
    }
    ::close(changes);
  }
  return next(descriptor);
}
