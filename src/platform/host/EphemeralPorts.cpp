#include <sstream>

#include "platform/TcpPort.h"

namespace sorvane {
namespace {

/// Whether a list such as "20221,30000-30010" names the port.
bool names(const std::string& list, int port) {
  std::istringstream parts(list);
  for (std::string part; std::getline(parts, part, ',');) {
    int first = 0;
    int last = 0;
    char dash = 0;
    std::istringstream numbers(part);
    numbers >> first;
    if (!(numbers >> dash >> last)) {
      last = first;
    }
    if (first <= port && port <= last) {
      return true;
    }
  }
  return false;
}

}  // namespace

bool EphemeralPorts::contain(int port) const {
  return first <= port && port <= last && !names(reserved, port);
}

}  // namespace sorvane
