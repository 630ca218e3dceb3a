// What a server hands on to the program that goes on with its connections: plain values, and how
// they are written and read. Nothing here touches a socket.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/Reply.h"
#include "platform/wire/ReplyBuffer.h"

namespace sorvane {

class KeptReader;
class KeptWriter;

/// Replies that a client has not taken yet.
struct KeptReplies {
  std::string_view own;                         ///< bytes of their own
  std::vector<ReplyBuffer::SharedText> shared;  ///< the texts between them
  std::size_t sentOfFirst =
      0;  ///< how much of the first one was sent; only if nothing is before it

  [[nodiscard]] bool empty() const { return own.empty() && shared.empty(); }
};

/// One connection between two requests. Which deadline it has, the phase says.
struct KeptConnection {
  /// What it waits for: see ServerConnection.h.
  enum class Phase : std::uint8_t { reading, sending, holding, lingering };

  int descriptor = -1;
  Phase phase = Phase::reading;
  bool isRefused = false;  ///< no more input is accepted
  bool isEnded = false;    ///< the delegate has forgotten it
  std::string_view input;  ///< bytes that came and are not handled
  KeptReplies replies;
  std::optional<std::chrono::milliseconds> deadline;  ///< the time left until then
  std::chrono::milliseconds holdingTime{};            ///< left, in the phase `holding`
};

/// A server without what its delegate keeps.
struct KeptServer {
  int listener = -1;
  std::vector<KeptConnection> connections;
};

/// Writes the connections of one server, one after the other. A text that replies share is written
/// once. The texts must live as long.
class KeptConnectionWriter {
 public:
  /// `connections` is how many will follow.
  KeptConnectionWriter(KeptWriter& writer, int listener, std::size_t connections);

  void write(const KeptConnection& connection);

 private:
  void write(const KeptReplies& replies);

  KeptWriter& writer_;
  std::unordered_map<const std::string*, std::uint64_t> numbers_;  // of the texts
};

/// Reads what was written so. Raises KeptFault if it cannot be. The views of the result are valid
/// as long as the description; a text that replies share is there once.
[[nodiscard]] KeptServer readKeptServer(KeptReader& reader);

}  // namespace sorvane
