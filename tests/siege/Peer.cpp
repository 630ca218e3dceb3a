#include "siege/Peer.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "support/RawConnection.h"

namespace sorvane::siege {

Peer::Peer(int port, std::chrono::seconds limit)
    : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  const timeval longest{limit.count(), 0};
  setsockopt(socket_.number(), SOL_SOCKET, SO_SNDTIMEO, &longest, sizeof longest);
  setsockopt(socket_.number(), SOL_SOCKET, SO_RCVTIMEO, &longest, sizeof longest);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(socket_.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    socket_.close();
  }
}

bool Peer::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(socket_.number(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) {
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
  return true;
}

bool Peer::receiveAll(char* buffer, std::size_t bytes) {
  // Asked for no bytes, the system would wait for the next ones.
  return bytes == 0 ||
         recv(socket_.number(), buffer, bytes, MSG_WAITALL) == static_cast<ssize_t>(bytes);
}

std::optional<std::string> Peer::receive() {
  unsigned char header[8];
  if (!receiveAll(reinterpret_cast<char*>(header), sizeof header)) {
    return std::nullopt;
  }
  const std::size_t bytes = std::size_t{header[4]} << 24 | std::size_t{header[5]} << 16 |
                            std::size_t{header[6]} << 8 | std::size_t{header[7]};
  lastReplyWasNil_ = header[3] == 0;
  std::string body(bytes, '\0');
  if (!receiveAll(body.data(), bytes)) {
    return std::nullopt;
  }
  return body;
}

std::optional<std::string> Peer::ask(const Message& request) {
  return send(test::frame(request)) ? receive() : std::nullopt;
}

bool Peer::isClosedByServer() {
  char dropped[65536];
  ssize_t received = 0;
  while ((received = recv(socket_.number(), dropped, sizeof dropped, 0)) > 0) {
  }
  return received == 0 || (errno != EAGAIN && errno != EWOULDBLOCK);
}

void Peer::abort() {
  const linger atOnce{1, 0};
  setsockopt(socket_.number(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
  socket_.close();
}

}  // namespace sorvane::siege
