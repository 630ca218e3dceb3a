#include "sorvctl/HostInfo.h"

#include <utility>

namespace sorvctl {

namespace {

/// Takes the last field of "NAME|ETHERNET|ADDRESS|VERSION|PLATFORM" off the text.
std::string takeLast(std::string& text) {
  const std::size_t separator = text.rfind('|');
  if (separator == std::string::npos) {
    return std::exchange(text, {});
  }
  std::string last = text.substr(separator + 1);
  text.erase(separator);
  return last;
}

}  // namespace

std::optional<HostInfo> hostInfoOf(std::string result) {
  if (result == "local only") {
    return std::nullopt;
  }
  HostInfo info;
  info.platform = takeLast(result);
  info.version = takeLast(result);
  info.address = takeLast(result);
  info.ethernetAddress = takeLast(result);
  info.name = std::move(result);  // a further "|" belongs to the name
  return info;
}

std::optional<HostInfo> readHostInfo(Session& session) {
  return hostInfoOf(
      session.askForResult({{"action", "hostInfo"}, {"hostAddress", session.hostName()}}));
}

}  // namespace sorvctl
