#include "platform/IPv4Address.h"

#include <arpa/inet.h>

namespace sorvane {

bool isIPv4Address(const std::string& text) {
  in_addr address{};
  return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

}  // namespace sorvane
