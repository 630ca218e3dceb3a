// The socket calls of the server that differ between operating systems or may be interrupted.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "platform/IPNetwork.h"
#include "platform/wire/ReplyBuffer.h"

namespace sorvane {

// ---- SocketCalls.cpp

/// Accepts one connection and returns its descriptor, which does not block and is closed on exec.
/// Returns -1 and sets `errno` on failure. Tries again if it was interrupted.
[[nodiscard]] int acceptConnection(int listener);

/// Sends as `send` does, but never raises SIGPIPE and never waits. Tries again if it was
/// interrupted.
[[nodiscard]] ssize_t sendBytes(int descriptor, std::string_view bytes);

/// Does the same for what follows the first `from` bytes of `replies`. One call may send less than
/// the system would take, if the bytes lie in very many places.
[[nodiscard]] ssize_t sendReplies(int descriptor, const ReplyBuffer& replies, std::size_t from);

/// Receives as `recv` does. Tries again if it was interrupted.
[[nodiscard]] ssize_t receiveBytes(int descriptor, char* buffer, std::size_t bytes);

/// Closes a socket.
void closeSocket(int descriptor);

// ---- ConnectionOptionsLinux.cpp, ConnectionOptionsMacos.cpp

/// Prepares a listening socket. Each connection accepted from it then sends without delay, and
/// notices within 30 seconds that its peer has vanished. Returns false if the system refuses.
[[nodiscard]] bool setConnectionOptions(int listener);

// ---- AcceptErrorsLinux.cpp, AcceptErrorsMacos.cpp

/// True if accepting failed for one connection, which is gone, and may succeed for the next one at
/// once. `error` is the value of `errno`.
[[nodiscard]] bool isErrorOfOneConnection(int error);

// ---- ListeningSocket.cpp

/// Returns the address of the peer, or nothing if the peer is gone.
[[nodiscard]] std::optional<IPAddress> peerAddress(int descriptor);

/// Returns the address and port of the peer for messages: "10.0.0.5:4711" or "[fe80::1]:4711", or
/// "a peer that is gone".
[[nodiscard]] std::string peerName(int descriptor);

}  // namespace sorvane
