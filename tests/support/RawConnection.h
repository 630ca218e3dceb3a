// A TCP client of the tests' own, which can say what no well-behaved client says.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Message.h"
#include "support/WaitUntil.h"
#include "support/WireBytes.h"

namespace sorvane::test {

/// The frame of a message, written independently of the code under test.
[[nodiscard]] std::string frame(const Message& message);

/// What came as a reply.
struct RawFrame {
  int kind = 0;      ///< 0 no dictionary, 1 a dictionary
  std::string body;  ///< its entries as they came
  [[nodiscard]] Message message() const;
};

/// A connection to a port of 127.0.0.1, or one end of a socket pair: bytes in, bytes out. What does
/// not come within `kPatience` fails the running test.
class RawConnection {
 public:
  explicit RawConnection(int port);
  /// Takes over a connected socket.
  [[nodiscard]] static RawConnection ofSocket(int socket);
  ~RawConnection();
  RawConnection(RawConnection&& other) noexcept;
  RawConnection& operator=(RawConnection&& other) noexcept;
  RawConnection(const RawConnection&) = delete;
  RawConnection& operator=(const RawConnection&) = delete;

  [[nodiscard]] bool isConnected() const { return socket_ >= 0; }
  [[nodiscard]] int descriptor() const { return socket_; }

  /// Sends all bytes, waiting as long as it takes; false when the peer has closed.
  bool send(std::string_view bytes);
  /// The next `count` bytes; fewer when the peer closes before.
  [[nodiscard]] std::string receive(std::size_t count);
  /// The next whole frame; nothing when the peer closes before.
  [[nodiscard]] std::optional<RawFrame> receiveFrame();
  /// Sends a request and takes its reply.
  [[nodiscard]] std::optional<RawFrame> ask(const Message& request);
  /// True when the peer closes within the limit without having sent another byte.
  [[nodiscard]] bool isClosedByPeer(std::chrono::milliseconds limit = kPatience);
  /// True when nothing arrives, not even the end, for that long.
  [[nodiscard]] bool staysSilent(std::chrono::milliseconds time);

  void shutdownWriting();
  void close();

 private:
  RawConnection() = default;
  [[nodiscard]] bool waitReadable(std::chrono::milliseconds limit) const;
  int socket_ = -1;
};

}  // namespace sorvane::test
