// A host as people write it, perhaps with a port.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace sorvctl {

struct HostAndPort {
  std::string host;         ///< a name or an address, without brackets
  std::optional<int> port;  ///< 2 to 65534
};

/// Reads "db.example", "db.example:20221", "192.0.2.7:20221", "[::1]", "[::1]:20221" or "::1". A
/// text with several colons and without brackets is an address of IPv6 as a whole. Throws a Failure
/// of status `wrongUsage` for anything else.
[[nodiscard]] HostAndPort readHostAndPort(std::string_view text);

/// The host as it stands before ":PORT": an address of IPv6 in brackets.
[[nodiscard]] std::string inBrackets(const std::string& host);

}  // namespace sorvctl
