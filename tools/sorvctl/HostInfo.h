// What a name server tells about its host.
#pragma once

#include <optional>
#include <string>

#include "sorvctl/Session.h"

namespace sorvctl {

struct HostInfo {
  std::string name;
  std::string ethernetAddress;
  std::string address;
  std::string version;   ///< of the name server
  std::string platform;  ///< its operating system
};

/// Asks the server. Nothing when it tells about its host on that host only.
[[nodiscard]] std::optional<HostInfo> readHostInfo(Session& session);

}  // namespace sorvctl
