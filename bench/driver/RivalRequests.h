// The requests to other servers that compare with a lookup.
#pragma once

#include <string>

#include "driver/Exchange.h"
#include "driver/Servers.h"

namespace sorvane::bench::rival_requests {

/// What a row calls it: several keys are one "multi-get" to memcached.
[[nodiscard]] std::string name(Rival::Kind kind, int depth);
/// Stores a value under a key, so large that its reply is as long as that of a lookup.
void store(Rival::Kind kind, int port);
/// Gets it, that many times at once.
[[nodiscard]] Exchange get(Rival::Kind kind, int depth);

// ---- redis: many hear of a change

/// Subscribes to a channel.
[[nodiscard]] Exchange subscription();
/// Publishes a message on that channel, which so many are subscribed to.
[[nodiscard]] Exchange publication(int subscribers);
/// What each of them gets.
[[nodiscard]] std::string message();

}  // namespace sorvane::bench::rival_requests
