#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <utility>

#include "platform/Descriptor.h"
#include "platform/NetService.h"

namespace sorvane {
namespace {

class PosixSocketPort : public SocketPort {
 public:
  explicit PosixSocketPort(Descriptor socket) : socket_(std::move(socket)) {}

 private:
  const Descriptor socket_;
};

bool listenOn(int descriptor, std::uint16_t port) {
  const int on = 1;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  return setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
         bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
         listen(descriptor, SOMAXCONN) == 0;
}

}  // namespace

std::unique_ptr<SocketPort> SocketPort::listeningOnTcpPort(std::uint16_t port) {
  Descriptor listener(socket(AF_INET, SOCK_STREAM, 0));
  if (!listener.isOpen()) {
    return nullptr;
  }
  fcntl(listener.number(), F_SETFD, FD_CLOEXEC);
  if (!listenOn(listener.number(), port)) {
    return nullptr;
  }
  return std::make_unique<PosixSocketPort>(std::move(listener));
}

}  // namespace sorvane
