// Loaded before the C library into a name server under test: counts the system calls of each kind,
// and lets one of them fail, as the fault table says.
//
// The serving loops call the kernel by syscall(2), in builds with a sanitizer by the functions of
// the C library; both are here. What the C library calls by itself, such as the write of a stream,
// does not pass through here: a full disk of the test's own has to do for that.
#include <stdarg.h>
#include <stdio.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <algorithm>

#include "faults/preload/Faults.h"

namespace {

using sorvane::test::Call;
using sorvane::test::next;
using sorvane::test::table;
using sorvane::test::through;

size_t fewer(size_t bytes) { return std::min<size_t>(bytes, std::max<size_t>(bytes / 2, 1)); }

/// A message with the first of the places alone.
msghdr shorter(const msghdr& message, iovec& piece) {
  msghdr fewerPlaces = message;
  if (message.msg_iovlen > 0) {
    piece = {message.msg_iov[0].iov_base, fewer(message.msg_iov[0].iov_len)};
    fewerPlaces.msg_iov = &piece;
    fewerPlaces.msg_iovlen = 1;
  }
  return fewerPlaces;
}

bool isPlainFile(int descriptor) {
  if (table == nullptr) {
    return true;
  }
  const int before = errno;
  struct stat status {};
  const bool isFile =
      ::fstatat(descriptor, "", &status, AT_EMPTY_PATH) == 0 && S_ISREG(status.st_mode);
  errno = before;
  return isFile;
}

Call watchingCall(int operation) {
  switch (operation) {
    case EPOLL_CTL_ADD:
      return Call::watch;
    case EPOLL_CTL_MOD:
      return Call::watchOtherwise;
    default:
      return Call::unwatch;
  }
}

}  // namespace

// ---- The serving loops of a build without a sanitizer

extern "C" long syscall(long number, ...) noexcept {
  static auto* const real = next(&syscall, "syscall");
  long a[6];
  va_list arguments;
  va_start(arguments, number);
  for (long& each : a) {
    each = va_arg(arguments, long);
  }
  va_end(arguments);
  const auto make = [&] { return real(number, a[0], a[1], a[2], a[3], a[4], a[5]); };
  switch (number) {
    case SYS_accept4:
      return through(Call::accept, make);
    case SYS_recvfrom:
      return through(Call::receive, make,
                     [&] { return real(number, a[0], a[1], 1L, a[3], a[4], a[5]); });
    case SYS_sendto:
      return through(Call::send, make, [&] {
        return real(number, a[0], a[1], fewer(static_cast<size_t>(a[2])), a[3], a[4], a[5]);
      });
    case SYS_sendmsg:
      return through(Call::sendGathered, make, [&] {
        iovec piece{};
        const msghdr message = shorter(*reinterpret_cast<const msghdr*>(a[1]), piece);
        return real(number, a[0], &message, a[2]);
      });
    case SYS_epoll_pwait:
      return through(Call::wait, make);
    default:
      return make();
  }
}

// ---- The serving loops of a build with a sanitizer

extern "C" int accept4(int listener, sockaddr* address, socklen_t* length, int flags) {
  static auto* const real = next(&accept4, "accept4");
  return through(Call::accept, [=] { return real(listener, address, length, flags); });
}

extern "C" ssize_t recv(int descriptor, void* buffer, size_t bytes, int flags) {
  static auto* const real = next(&recv, "recv");
  return through(
      Call::receive, [=] { return real(descriptor, buffer, bytes, flags); },
      [=] { return real(descriptor, buffer, 1, flags); });
}

extern "C" ssize_t send(int descriptor, const void* buffer, size_t bytes, int flags) {
  static auto* const real = next(&send, "send");
  return through(
      Call::send, [=] { return real(descriptor, buffer, bytes, flags); },
      [=] { return real(descriptor, buffer, fewer(bytes), flags); });
}

extern "C" ssize_t sendmsg(int descriptor, const msghdr* message, int flags) {
  static auto* const real = next(&sendmsg, "sendmsg");
  return through(
      Call::sendGathered, [=] { return real(descriptor, message, flags); },
      [=] {
        iovec piece{};
        const msghdr less = shorter(*message, piece);
        return real(descriptor, &less, flags);
      });
}

extern "C" int epoll_wait(int epoll, epoll_event* events, int most, int milliseconds) {
  static auto* const real = next(&epoll_wait, "epoll_wait");
  return through(Call::wait, [=] { return real(epoll, events, most, milliseconds); });
}

// ---- All builds

extern "C" int epoll_ctl(int epoll, int operation, int descriptor, epoll_event* event) noexcept {
  static auto* const real = next(&epoll_ctl, "epoll_ctl");
  return through(watchingCall(operation),
                 [=] { return real(epoll, operation, descriptor, event); });
}

extern "C" ssize_t write(int descriptor, const void* buffer, size_t bytes) {
  static auto* const real = next(&write, "write");
  return through(
      isPlainFile(descriptor) ? Call::write : Call::wake,
      [=] { return real(descriptor, buffer, bytes); },
      [=] { return real(descriptor, buffer, fewer(bytes)); });
}

extern "C" ssize_t read(int descriptor, void* buffer, size_t bytes) {
  static auto* const real = next(&read, "read");
  if (isPlainFile(descriptor)) {
    return real(descriptor, buffer, bytes);
  }
  return through(Call::takeWakeUp, [=] { return real(descriptor, buffer, bytes); });
}

extern "C" int getpeername(int descriptor, sockaddr* address, socklen_t* length) noexcept {
  static auto* const real = next(&getpeername, "getpeername");
  return through(Call::peerName, [=] { return real(descriptor, address, length); });
}

extern "C" int shutdown(int descriptor, int how) noexcept {
  static auto* const real = next(&shutdown, "shutdown");
  return through(Call::shutDown, [=] { return real(descriptor, how); });
}

extern "C" int stat(const char* path, struct stat* status) noexcept {
  static auto* const real = next(&stat, "stat");
  return through(Call::stat, [=] { return real(path, status); });
}

extern "C" int lstat(const char* path, struct stat* status) noexcept {
  static auto* const real = next(&lstat, "lstat");
  return through(Call::linkStatus, [=] { return real(path, status); });
}

extern "C" int fchmod(int descriptor, mode_t mode) noexcept {
  static auto* const real = next(&fchmod, "fchmod");
  return through(Call::setMode, [=] { return real(descriptor, mode); });
}

extern "C" int fstat(int descriptor, struct stat* status) noexcept {
  static auto* const real = next(&fstat, "fstat");
  return through(Call::statusOfOpen, [=] { return real(descriptor, status); });
}

extern "C" int open(const char* path, int flags, ...) {
  static auto* const real = next(&open, "open");
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return through(Call::open, [=] { return real(path, flags, mode); });
}

extern "C" FILE* fopen(const char* path, const char* mode) {
  static auto* const real = next(&fopen, "fopen");
  return through(Call::openStream, [=] { return real(path, mode); });
}

extern "C" int flock(int descriptor, int operation) noexcept {
  static auto* const real = next(&flock, "flock");
  return through(Call::lock, [=] { return real(descriptor, operation); });
}

extern "C" int fsync(int descriptor) {
  static auto* const real = next(&fsync, "fsync");
  return through(Call::flush, [=] { return real(descriptor); });
}

extern "C" int rename(const char* from, const char* to) noexcept {
  static auto* const real = next(&rename, "rename");
  return through(Call::rename, [=] { return real(from, to); });
}
