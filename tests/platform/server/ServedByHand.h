// A server whose turns the test takes one by one.
#pragma once

#include <chrono>
#include <cstddef>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "platform/Descriptor.h"
#include "platform/server/ServedDelegate.h"
#include "platform/server/ServingLoop.h"
#include "support/RawConnection.h"

namespace sorvane::test {

/// The limits of a server by hand; without need of one, there is none.
struct HandLimits {
  std::size_t unfinishedBytes = std::numeric_limits<std::size_t>::max();
  std::size_t unsentBytes = std::numeric_limits<std::size_t>::max();
  std::chrono::milliseconds untakenReply{300000};
  std::chrono::milliseconds partialMessage = Settings().partialMessageTimeout;
  int loops = 1;
  WorkMarks* marks = nullptr;
};

/// Its connections are socket pairs: what one side has sent has arrived at the other. Nothing
/// happens but in a turn, and in the waiting threads.
class ServedByHand {
 public:
  explicit ServedByHand(const HandLimits& limits = {});

  [[nodiscard]] ScriptedDelegate& delegate() { return delegate_; }
  [[nodiscard]] ServerContext& context() { return context_; }
  /// The first loop, as a rule the only one.
  [[nodiscard]] ServingLoop& loop() { return *loops_.front(); }
  [[nodiscard]] const std::vector<std::unique_ptr<ServingLoop>>& loops() const { return loops_; }

  /// A new connection of the first loop.
  [[nodiscard]] RawConnection connect();
  /// The first loop takes a turn, which waits for an event or a deadline.
  void turn() { loop().takeTurn(nullptr); }
  /// What the client receives until it has `count` bytes or the server has closed; takes turns
  /// whenever there is nothing to receive.
  [[nodiscard]] std::string receives(RawConnection& client, std::size_t count);

 private:
  ScriptedDelegate delegate_;
  ServerContext context_;
  std::vector<std::unique_ptr<ServingLoop>> loops_;
};

/// The two ends of a connection without a network. The server's end does not block.
struct SocketPair {
  SocketPair();
  Descriptor server;
  Descriptor client;
};

}  // namespace sorvane::test
