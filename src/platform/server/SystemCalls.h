// The system calls of the serving loops. The rest of the server uses SocketCalls.h.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string_view>

struct epoll_event;
struct msghdr;

/// Each function makes one call. It returns -1 and sets errno on failure; EINTR is a failure.
///
/// On Linux, SystemCallsLinux.cpp calls the kernel without the C library. The library's functions
/// for these calls are cancellation points: in a process with several threads, each call spends 40
/// ns on preparing for a cancellation. Nothing is ever cancelled here.
///
/// Builds with a sanitizer use LibraryCallsLinux.cpp instead. A sanitizer watches the functions of
/// the library. Without them it would report a race where threads pass data to each other through
/// the system.
namespace sorvane::systemcall {

/// Accepts a connection that does not block and is closed on exec.
[[nodiscard]] int accept(int listener);
/// Sends without blocking and without SIGPIPE.
[[nodiscard]] ssize_t send(int descriptor, std::string_view bytes);
/// The same for what the message gathers.
[[nodiscard]] ssize_t send(int descriptor, const msghdr& message);
[[nodiscard]] ssize_t receive(int descriptor, char* buffer, std::size_t bytes);
void close(int descriptor);
/// epoll_wait; on Linux alone.
[[nodiscard]] int wait(int epoll, epoll_event* events, int maximum, int milliseconds);

}  // namespace sorvane::systemcall
