// Requests delivered without a socket.
#pragma once

#include <optional>

#include "platform/NetConnection.h"

namespace sorvane::test {

/// A connection of a server in this process.
class InProcessConnection : public NetConnection {
 public:
  using NetConnection::setReplyBuffer;
};

/// Calls `deliverCommunication` and returns the reply dictionary, or nothing for nil. If the
/// request is held, returns {"held": seconds}. Passes on what the delegate raises.
[[nodiscard]] std::optional<Message> deliverInProcess(NetConnectionDelegate& delegate,
                                                      const Message& request,
                                                      InProcessConnection& sender);

/// Asks for the reply to the held request by `deliverHeld`; returns the same.
[[nodiscard]] std::optional<Message> askHeldInProcess(NetConnectionDelegate& delegate,
                                                      InProcessConnection& sender, bool isLastTime);

}  // namespace sorvane::test
