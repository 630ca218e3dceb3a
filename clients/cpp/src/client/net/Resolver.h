// Finds the addresses of a host.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "client/net/Address.h"
#include "client/net/Wait.h"
#include "sorvane/client.h"

namespace sorvane::client::detail {

/// Asks the system for the addresses of one host. The system's look-up knows no time limit, so it
/// has a thread of its own; what is known without asking needs none: addresses, and "localhost". A
/// look-up that takes longer than its caller waits goes on, and serves the next call: so there is
/// one thread at most for each resolver.
class Resolver {
 public:
  explicit Resolver(std::string host) : host_(std::move(host)) {}

  /// At least one address, or an error: `unreachable`, `timedOut`, `system`. One who is woken gets
  /// `timedOut`, too.
  Result<std::vector<SocketAddress>> addresses(const Limit& limit);

 private:
  struct LookUp;

  const std::string host_;
  std::shared_ptr<LookUp> pending_;
};

}  // namespace sorvane::client::detail
