// What is asked of a server and what comes back: the unit of a measurement.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace sorvane::bench {

/// Bytes sent at once and the bytes due for them. A server that sends anything else fails the
/// measurement: a wrong answer is not counted.
struct Exchange {
  std::string request;
  std::string reply;
  int operations = 1;  ///< for how many operations the exchange counts
};

/// The exchange that many times over, sent at once.
[[nodiscard]] Exchange pipelined(const Exchange& one, int depth);
/// Different ones, sent at once.
[[nodiscard]] Exchange joined(const std::vector<Exchange>& parts);

/// A request of a short connection. Its reply is a frame, whose first bytes are those given here: a
/// port number in it is another one each time.
struct Step {
  std::string request;
  std::string reply;
  std::size_t fixedReplyBytes;
};
using Cycle = std::vector<Step>;

/// What the rows ask the name server.
namespace sorvane_requests {

[[nodiscard]] std::string ping();
[[nodiscard]] std::string findPort();
[[nodiscard]] std::string findPort(std::string_view name);
/// A lookup with an answer of 128 bytes finds what this registers.
[[nodiscard]] std::string newPort();
[[nodiscard]] std::string newPort(std::string_view name);
[[nodiscard]] std::string acceptPort();
/// Enters a name at once. A connection may enter several; they all stand for its latest.
[[nodiscard]] std::string reconnectPort(std::string_view name);
/// The lookup of a name whose connection entered `latest` last.
[[nodiscard]] Exchange findReconnected(std::string_view name, std::string_view latest);

}  // namespace sorvane_requests

/// Asks a server of the name server's protocol, and answers the exchange with what came back.
[[nodiscard]] Exchange learn(int port, const std::string& request);

}  // namespace sorvane::bench
