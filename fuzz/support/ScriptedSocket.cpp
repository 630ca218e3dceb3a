#include "support/ScriptedSocket.h"

#include <dlfcn.h>
#include <netdb.h>

#include "platform/client/ClientSocket.h"
#include "support/Require.h"

namespace sorvane::fuzz {

PeerScript peer;

}  // namespace sorvane::fuzz

namespace sorvane {

using fuzz::peer;

struct ClientSocket::Loop {
  std::string peerAddress;
};

ClientSocket::ClientSocket() : loop_(std::make_unique<Loop>()) {}
ClientSocket::~ClientSocket() = default;

ClientSocket::Failure ClientSocket::connect(const std::vector<std::string>& addresses, int port,
                                            Deadline /*deadline*/) {
  fuzz::require(!addresses.empty(), "a client connects to an address");
  fuzz::require(port >= 1 && port <= 65535, "a client connects to a port that exists");
  peer.addresses = addresses;
  peer.port = port;
  loop_->peerAddress = addresses.front();
  return std::nullopt;
}

ClientSocket::Failure ClientSocket::send(std::string_view /*bytes*/, std::string& input,
                                         std::size_t /*maximumInput*/, Deadline /*deadline*/) {
  if (peer.failingSend == peer.sends++) {
    while (!peer.stream.atEnd()) {
      input += peer.stream.next();
    }
    return Reason{"the script says so", !peer.endsByTimeout};
  }
  if (peer.sendsEarly && !peer.stream.atEnd()) {
    input += peer.stream.next();
  }
  return std::nullopt;
}

ClientSocket::Failure ClientSocket::receive(std::string& input, Deadline /*deadline*/) {
  if (peer.stream.atEnd()) {
    return Reason{"the script has ended", !peer.endsByTimeout};
  }
  input += peer.stream.next();
  return std::nullopt;
}

std::string ClientSocket::peerAddress() const { return loop_->peerAddress; }

int ClientSocket::descriptor() const { return -1; }

void ClientSocket::close() { loop_->peerAddress.clear(); }

}  // namespace sorvane

// Takes the place of the C library's own.
extern "C" int getaddrinfo(const char* node, const char* service, const addrinfo* hints,
                           addrinfo** result) noexcept(false) {
  using Resolver = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
  static const auto resolve = reinterpret_cast<Resolver>(dlsym(RTLD_NEXT, "getaddrinfo"));
  if ((hints->ai_flags & AI_NUMERICHOST) == 0) {
    sorvane::fuzz::peer.resolved.emplace_back(node);
    node = sorvane::fuzz::kResolvedAddress;
  }
  return resolve(node, service, hints, result);
}
