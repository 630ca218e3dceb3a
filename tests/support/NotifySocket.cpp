#include "support/NotifySocket.h"

#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace sorvane::test {
namespace {

void require(bool done, const char* what) {
  if (!done) {
    throw std::system_error(errno, std::generic_category(), what);
  }
}

}  // namespace

// The name of the folder is unique, so it serves as an abstract name, too.
NotifySocket::NotifySocket(Kind kind)
    : name_((kind == Kind::abstractName ? "@" : "") + (folder_ / "notify").string()),
      socket_(openSocket(AF_UNIX, SOCK_DGRAM)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  require(name_.size() < sizeof address.sun_path, "the path is too long");
  std::memcpy(address.sun_path, name_.data(), name_.size());
  std::size_t length = name_.size() + 1;
  if (kind == Kind::abstractName) {
    address.sun_path[0] = '\0';
    length = name_.size();
  }
  require(bind(socket_.number(), reinterpret_cast<const sockaddr*>(&address),
               static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length)) == 0,
          "bind");
}

std::function<void()> NotifySocket::environment(const std::string& watchdog) const {
  return [this, watchdog] {
    setenv("NOTIFY_SOCKET", name_.c_str(), 1);
    if (!watchdog.empty()) {
      setenv("WATCHDOG_USEC", watchdog.c_str(), 1);
      setenv("WATCHDOG_PID", std::to_string(getpid()).c_str(), 1);
    }
  };
}

std::optional<std::string> NotifySocket::receive(std::chrono::milliseconds limit) {
  pollfd question{socket_.number(), POLLIN, 0};
  if (poll(&question, 1, static_cast<int>(limit.count())) != 1) {
    return std::nullopt;
  }
  std::string message(4096, '\0');
  const ssize_t length = recv(socket_.number(), message.data(), message.size(), MSG_DONTWAIT);
  require(length >= 0, "recv");
  message.resize(static_cast<std::size_t>(length));
  return message;
}

bool NotifySocket::hears(const std::string& line) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (std::chrono::steady_clock::now() < end) {
    const std::optional<std::string> message = receive();
    if (message && ("\n" + *message).find("\n" + line + "\n") != std::string::npos) {
      return true;
    }
  }
  return false;
}

void NotifySocket::forgetWhatCame() {
  while (receive(std::chrono::milliseconds(0))) {
  }
}

void NotifySocket::fill() const {
  const Descriptor sender = openSocket(AF_UNIX, SOCK_DGRAM);
  sockaddr_un address{};
  socklen_t length = sizeof address;
  require(getsockname(socket_.number(), reinterpret_cast<sockaddr*>(&address), &length) == 0,
          "getsockname");
  while (sendto(sender.number(), "x", 1, MSG_DONTWAIT, reinterpret_cast<const sockaddr*>(&address),
                length) == 1) {
  }
  require(errno == EAGAIN, "sendto");
}

}  // namespace sorvane::test
