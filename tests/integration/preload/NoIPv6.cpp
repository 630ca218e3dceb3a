// Loaded before the C library into a name server under test: a host without IPv6.
#include <dlfcn.h>
#include <sys/socket.h>

#include <cerrno>

extern "C" int socket(int domain, int type, int protocol) noexcept {
  static auto* const next = reinterpret_cast<int (*)(int, int, int)>(dlsym(RTLD_NEXT, "socket"));
  if (domain == AF_INET6) {
    errno = EAFNOSUPPORT;
    return -1;
  }
  return next(domain, type, protocol);
}
