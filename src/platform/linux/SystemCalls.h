// The system calls of the serving loops, as bare as they can be had.
#pragma once

#include <sys/epoll.h>
#include <sys/types.h>

#include <cstddef>
#include <string_view>

/// Each makes one call: -1 and errno where it fails, EINTR included.
///
/// The library's functions for these calls are points at which a thread may be cancelled. Nothing
/// is ever cancelled here, and preparing for it takes 40 ns of each call in a process with several
/// threads: SystemCalls.cpp goes past them. A sanitizer, which watches the library's functions,
/// would take what threads hand to each other through the system for a race: its builds have
/// LibraryCalls.cpp instead.
namespace sorvane::systemcall {

/// A connection that does not block and is not inherited by programs.
[[nodiscard]] int accept(int listener);
[[nodiscard]] ssize_t send(int descriptor, std::string_view bytes);
[[nodiscard]] ssize_t receive(int descriptor, char* buffer, std::size_t bytes);
[[nodiscard]] int wait(int epoll, epoll_event* events, int maximum, int milliseconds);
void close(int descriptor);

}  // namespace sorvane::systemcall
