#include "platform/bonjour/ServiceNames.h"

#include <algorithm>

namespace sorvane {
namespace {

bool continuesCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; }

}  // namespace

std::string serviceNameOfAttempt(const std::string& name, int attempt) {
  if (attempt < 2) {
    return name;
  }
  const std::string ending = " (" + std::to_string(attempt) + ")";
  std::size_t length = std::min(name.size(), kMaximumServiceNameBytes - ending.size());
  while (length > 0 && length < name.size() && continuesCharacter(name[length])) {
    --length;
  }
  return name.substr(0, length) + ending;
}

}  // namespace sorvane
