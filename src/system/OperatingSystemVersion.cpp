// The version of the operating system as text: the name in its release file, and its kernel.
#include <sys/utsname.h>

#include <optional>
#include <sstream>
#include <string>

#include "platform/PlainFile.h"
#include "system/ProcessInfo.h"

namespace sorvane {
namespace {

constexpr std::size_t kMaximumFileBytes = std::size_t{1} << 20;

// Returns the value of PRETTY_NAME without its quotes, see os-release(5). Empty when there is none.
std::string prettyName(const char* path) {
  const std::string key = "PRETTY_NAME=";
  const auto file = readPlainFile(path, kMaximumFileBytes);
  const auto* content = std::get_if<std::string>(&file);
  std::istringstream lines(content != nullptr ? *content : std::string());
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind(key, 0) == 0) {
      std::string value = line.substr(key.size());
      if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
          value.back() == value.front()) {
        value = value.substr(1, value.size() - 2);
      }
      return value;
    }
  }
  return {};
}

}  // namespace

std::optional<std::string> ProcessInfo::operatingSystemVersionString() const {
  utsname kernel{};
  if (uname(&kernel) < 0) {
    return std::nullopt;
  }
  const std::string kernelText = std::string(kernel.sysname) + " " + kernel.release;
  const std::string release = prettyName("/etc/os-release");
  return release.empty() ? kernelText : release + " (" + kernelText + ")";
}

}  // namespace sorvane
