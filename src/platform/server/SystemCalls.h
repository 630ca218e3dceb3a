// The system calls of the serving loops. SocketCalls.h is what the rest of the server uses.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string_view>

struct epoll_event;

/// Each function makes one call. It returns -1 and sets errno on failure; EINTR is a failure.
///
/// On Linux, SystemCallsLinux.cpp calls the kernel without the C library: the library's functions
/// for these calls are cancellation points, and preparing for a cancellation takes 40 ns of each
/// call in a process with several threads. Nothing is ever cancelled here. Builds with a sanitizer
/// have LibraryCallsLinux.cpp instead: a sanitizer watches the library's functions, and without
/// them would take what threads hand to each other through the system for a race.
namespace sorvane::systemcall {

/// Accepts a connection that does not block and is closed on exec.
[[nodiscard]] int accept(int listener);
/// Sends without blocking and without SIGPIPE.
[[nodiscard]] ssize_t send(int descriptor, std::string_view bytes);
[[nodiscard]] ssize_t receive(int descriptor, char* buffer, std::size_t bytes);
void close(int descriptor);
/// epoll_wait; on Linux alone.
[[nodiscard]] int wait(int epoll, epoll_event* events, int maximum, int milliseconds);

}  // namespace sorvane::systemcall
