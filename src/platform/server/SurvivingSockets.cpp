#include "platform/SurvivingSockets.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <iterator>
#include <optional>

namespace sorvane {
namespace {

/// Returns the port of an Internet socket on this side; 0 if it has none yet. Returns nothing for
/// anything else.
std::optional<int> portOf(int descriptor) {
  sockaddr_storage address{};
  socklen_t bytes = sizeof address;
  if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &bytes) != 0) {
    return std::nullopt;
  }
  if (address.ss_family == AF_INET) {
    return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
  }
  if (address.ss_family == AF_INET6) {
    return ntohs(reinterpret_cast<const sockaddr_in6&>(address).sin6_port);
  }
  return std::nullopt;
}

bool listens(int descriptor) {
  int value = 0;
  socklen_t bytes = sizeof value;
  return getsockopt(descriptor, SOL_SOCKET, SO_ACCEPTCONN, &value, &bytes) == 0 && value != 0;
}

bool hasPeer(int descriptor) {
  sockaddr_storage address{};
  socklen_t bytes = sizeof address;
  return getpeername(descriptor, reinterpret_cast<sockaddr*>(&address), &bytes) == 0;
}

}  // namespace

SurvivingSockets survivingSockets(int listener, const std::vector<int>& descriptors,
                                  const WorkMarks& marks) {
  SurvivingSockets found;
  const auto port = portOf(listener);
  if (!port || !listens(listener)) {
    return found;
  }
  found.listener = listener;
  for (const int each : descriptors) {
    if (each != listener && portOf(each) == port && hasPeer(each) && !marks.isAtWork(each)) {
      found.connections.push_back(each);
    }
  }
  return found;
}

std::vector<int> internetSockets(const std::vector<int>& descriptors) {
  std::vector<int> found;
  std::copy_if(descriptors.begin(), descriptors.end(), std::back_inserter(found),
               [](int each) { return portOf(each).has_value(); });
  return found;
}

}  // namespace sorvane
