// Requests with the replies that they must have: the unit of a measurement.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace sorvane::bench {

/// Bytes that are sent at once, and the reply to them. A server that sends anything else ends the
/// measurement with an error.
struct Exchange {
  std::string request;
  std::string reply;
  int operations = 1;  ///< for how many operations the exchange counts
};

/// The exchange that many times, sent at once.
[[nodiscard]] Exchange pipelined(const Exchange& one, int depth);
/// Different ones, sent at once.
[[nodiscard]] Exchange joined(const std::vector<Exchange>& parts);

/// A request of a short connection. Its reply is a frame. Only the first `fixedReplyBytes` are
/// compared, since a port number in it differs each time.
struct Step {
  std::string request;
  std::string reply;
  std::size_t fixedReplyBytes;
};
using Cycle = std::vector<Step>;

/// The requests of the cycle of each of some connections, by its number.
using CycleRequests = std::function<std::vector<std::string>(int connection)>;

/// What the rows ask the name server.
namespace sorvane_requests {

inline constexpr std::string_view kName = "customers";

[[nodiscard]] std::string ping();
[[nodiscard]] std::string findPort();
[[nodiscard]] std::string findPort(std::string_view name);
/// Registers what `findPort` finds; the reply to that has 128 bytes.
[[nodiscard]] std::string newPort();
[[nodiscard]] std::string newPort(std::string_view name);
[[nodiscard]] std::string acceptPort();
/// Registers a name of its own for each of some connections. See `CycleRequests`.
[[nodiscard]] std::vector<std::string> registration(int connection);
[[nodiscard]] std::string setDatabaseState(std::string_view name, std::string_view state);
[[nodiscard]] std::string didPortsChange();
/// Waits for a change as long as possible.
[[nodiscard]] std::string awaitPortChanges();
/// Asks what the name server has gone through.
[[nodiscard]] std::string continuity();
/// A change, and its reply.
[[nodiscard]] Exchange refresh();
/// The reply whose result is that text.
[[nodiscard]] std::string result(std::string_view text);
/// Registers a name with one request. A connection may register several; a lookup of any of them
/// returns the latest.
[[nodiscard]] std::string reconnectPort(std::string_view name);
/// The lookup of a name whose connection registered `latest` last.
[[nodiscard]] Exchange findReconnected(std::string_view name, std::string_view latest);

}  // namespace sorvane_requests

/// Sends a request to a name server, and returns it with the reply that came.
[[nodiscard]] Exchange recordExchange(int port, const std::string& request);
/// Goes once through the cycle of each of eight connections, and returns them with the replies. The
/// port number that a registration brings differs each time.
[[nodiscard]] std::vector<Cycle> recordCycles(int port, const CycleRequests& requests);

}  // namespace sorvane::bench
