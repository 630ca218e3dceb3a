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

std::optional<HostInfo> readHostInfo(Session& session) {
  std::string text =
      session.askForResult({{"action", "hostInfo"}, {"hostAddress", session.hostName()}});
  if (text == "local only") {
    return std::nullopt;
  }
  HostInfo info;
  info.platform = takeLast(text);
  info.version = takeLast(text);
  info.address = takeLast(text);
  info.ethernetAddress = takeLast(text);
  info.name = std::move(text);  // a further "|" belongs to the name
  return info;
}

}  // namespace sorvctl
