// A client that minds nothing: it sends what it likes and takes every end as it comes.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Descriptor.h"
#include "platform/Message.h"

namespace sorvane::siege {

/// A connection to a port of 127.0.0.1. No call waits longer than the limit for one send or receive
/// that makes no progress. After a call that returns false or nothing, the connection is of no use
/// any more.
class Peer {
 public:
  explicit Peer(int port, std::chrono::seconds limit = std::chrono::seconds(2));

  [[nodiscard]] bool isConnected() const { return socket_.isOpen(); }
  [[nodiscard]] bool send(std::string_view bytes);
  /// The next reply: its body, or nothing when the other side closed.
  [[nodiscard]] std::optional<std::string> receive();
  /// Whether the last reply was one without a dictionary.
  [[nodiscard]] bool lastReplyWasNil() const { return lastReplyWasNil_; }
  /// Sends a request and takes its reply.
  [[nodiscard]] std::optional<std::string> ask(const Message& request);
  /// Takes what still comes until the other side closes. Returns whether it did.
  [[nodiscard]] bool isClosedByServer();
  /// Ends the connection as a host does that was cut off: without a word of farewell.
  void abort();

 private:
  [[nodiscard]] bool receiveAll(char* buffer, std::size_t bytes);

  Descriptor socket_;
  bool lastReplyWasNil_ = false;
};

}  // namespace sorvane::siege
