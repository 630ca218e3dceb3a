#include "driver/Socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "platform/wire/Frame.h"
#include "platform/wire/WireInteger.h"

namespace sorvane::bench {
namespace {

constexpr int kFirstPort = 21000;
constexpr int kLastPort = 31000;

sockaddr_in addressOf(std::uint32_t address, int port) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_addr.s_addr = htonl(address);
  result.sin_port = htons(static_cast<std::uint16_t>(port));
  return result;
}

Socket newSocket() {
  Socket socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (socket.descriptor() < 0) {
    throwSystemError("socket");
  }
  return socket;
}

bool isFree(int port) {
  const Socket socket = newSocket();
  const sockaddr_in address = addressOf(INADDR_ANY, port);
  return ::bind(socket.descriptor(), reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
         0;
}

}  // namespace

void throwSystemError(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

Socket::Socket(Socket&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

Socket& Socket::operator=(Socket&& other) noexcept {
  std::swap(descriptor_, other.descriptor_);
  return *this;
}

void Socket::close() {
  if (descriptor_ >= 0) {
    ::close(std::exchange(descriptor_, -1));
  }
}

void Socket::sendAll(std::string_view bytes) const {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0) {
      throwSystemError("send");
    }
    bytes.remove_prefix(static_cast<std::size_t>(sent));
  }
}

std::string Socket::receive(std::size_t count) const {
  std::string bytes(count, '\0');
  for (std::size_t have = 0; have < count;) {
    const ssize_t got = ::recv(descriptor_, bytes.data() + have, count - have, 0);
    if (got < 0) {
      throwSystemError("recv");
    }
    if (got == 0) {
      throw std::runtime_error("the server closed the connection");
    }
    have += static_cast<std::size_t>(got);
  }
  return bytes;
}

std::string Socket::receiveFrame() const {
  const std::string header = receive(kFrameHeaderBytes);
  return header + receive(loadBigEndian32(header.data() + 4));
}

Socket connectTo(int port, std::uint32_t address, bool refusalIsFine) {
  Socket socket = newSocket();
  const sockaddr_in to = addressOf(address, port);
  if (::connect(socket.descriptor(), reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) {
    if (refusalIsFine && errno == ECONNREFUSED) {
      return Socket();
    }
    throwSystemError("connect to port " + std::to_string(port));
  }
  return socket;
}

Socket listenOnFreePort() {
  Socket socket = newSocket();
  const int yes = 1;
  const sockaddr_in address = addressOf(INADDR_ANY, freePort());
  if (::setsockopt(socket.descriptor(), IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes) != 0 ||
      ::bind(socket.descriptor(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
          0 ||
      ::listen(socket.descriptor(), SOMAXCONN) != 0) {
    throwSystemError("listen");
  }
  return socket;
}

int portOf(const Socket& listener) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  if (::getsockname(listener.descriptor(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    throwSystemError("getsockname");
  }
  return ntohs(address.sin_port);
}

int freePort() {
  // Each process begins elsewhere, so that two that run at the same time hardly meet.
  static int next = kFirstPort + static_cast<int>((::getpid() * 37L) % (kLastPort - kFirstPort));
  for (int tries = 0; tries < kLastPort - kFirstPort; tries += 2) {
    next = next + 2 < kLastPort ? next + 2 : kFirstPort;
    if (isFree(next) && isFree(next - 1)) {
      return next;
    }
  }
  throw std::runtime_error("no free port");
}

}  // namespace sorvane::bench
