// The socket calls of the server, where operating systems differ or a call may be interrupted.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace sorvane {

/// Accepts one connection, non-blocking and not inherited by programs that are started; -1 and
/// `errno` on failure. Interruptions and connections that were gone before they could be accepted
/// are passed over.
[[nodiscard]] int acceptConnection(int listener);

/// `send` that never raises SIGPIPE and never waits; goes on after an interruption.
[[nodiscard]] ssize_t sendBytes(int descriptor, std::string_view bytes);

/// `recv` that goes on after an interruption.
[[nodiscard]] ssize_t receiveBytes(int descriptor, char* buffer, std::size_t bytes);

/// Closes a socket.
void closeSocket(int descriptor);

/// Prepares a listening socket so that every connection accepted from it sends without delay and
/// notices within 30 seconds that its peer vanished. False when the system refuses.
[[nodiscard]] bool setConnectionOptions(int listener);

/// The address and port of the other side, for messages: "10.0.0.5:4711" or "[fe80::1]:4711".
[[nodiscard]] std::string peerName(int descriptor);

}  // namespace sorvane
