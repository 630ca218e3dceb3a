// The name servers that "net" asks.
#pragma once

#include <compare>
#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "sorvctl/NetworkView.h"
#include "sorvctl/PortPicture.h"
#include "sorvctl/Session.h"

namespace sorvctl::net {

/// The most name servers that are asked at the same time.
inline constexpr std::size_t kMostServers = 256;
/// The longest reply that each may give, bytes. It has room for the list of about 20,000 databases,
/// for what is told of them at a time, and for one whose texts are as long as requests may be.
inline constexpr std::size_t kMostReplyBytes = std::size_t{5} << 20;
/// The most of one server.
inline constexpr PictureBounds kBoundsOfServer{20'000, std::size_t{8} << 20};
/// The most databases of all together.
inline constexpr std::size_t kMostDatabasesOfAll = 100'000;

/// A name server, with the ways that may lead to it.
struct Server {
  std::string name;                // for people
  std::vector<std::string> hosts;  // names or addresses of its host; one at least
  int port = 0;
  auto operator<=>(const Server&) const = default;
};

/// Returns the servers of a list of hosts, "A,B:20300,[::1]:20221", in its order, each once.
/// `port` is that of a host without one. Throws a Failure of `wrongUsage` for a text that is no
/// such list, or for more than `kMostServers`.
[[nodiscard]] std::vector<Server> serversOfList(std::string_view hosts, int port);

/// Returns the servers that Bonjour has found, by name, one for all addresses of a name and port.
/// At most `kMostServers`. A name server publishes the usual port, even if it serves at another
/// one; `port`, if it is not 0, is where they are asked instead.
[[nodiscard]] std::vector<Server> serversOfNetwork(const std::set<NameServer>& found, int port);

/// Returns the options for each way to a server. `common` are those of the command line.
[[nodiscard]] std::vector<Options> waysTo(const Server& server, const Options& common);

}  // namespace sorvctl::net
