#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/NetService.h"

namespace sorvane {
namespace {

class PosixSocketPort : public SocketPort {
 public:
  explicit PosixSocketPort(int descriptor) : descriptor_(descriptor) {}
  ~PosixSocketPort() override { close(descriptor_); }

 private:
  const int descriptor_;
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
  const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
  if (descriptor < 0) {
    return nullptr;
  }
  fcntl(descriptor, F_SETFD, FD_CLOEXEC);
  auto socketPort = std::make_unique<PosixSocketPort>(descriptor);
  return listenOn(descriptor, port) ? std::move(socketPort) : nullptr;
}

}  // namespace sorvane
