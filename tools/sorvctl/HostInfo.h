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

/// Returns what the result of the request "hostInfo" tells. Nothing when the server tells about its
/// host on that host only. Fields that are missing are empty.
[[nodiscard]] std::optional<HostInfo> hostInfoOf(std::string result);

/// Asks the server, and returns the same.
[[nodiscard]] std::optional<HostInfo> readHostInfo(Session& session);

}  // namespace sorvctl
