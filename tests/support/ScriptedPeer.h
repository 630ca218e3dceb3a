// A TCP server that follows a script: the other side for tests of clients.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

namespace sorvane::test {

/// What the script holds of one accepted connection. Every call ends when the client, or the end of
/// the peer's life, closes it.
class PeerConnection {
 public:
  explicit PeerConnection(int socket) : socket_(socket) {}

  bool send(std::string_view bytes);
  /// Fewer bytes when the client closes before.
  [[nodiscard]] std::string receive(std::size_t count);
  /// The body of the next request; nothing when the client closes before.
  [[nodiscard]] std::optional<std::string> receiveRequest();
  void shutdownWriting();
  /// Reads until the client closes: the way to stay silent.
  void waitForClose();
  /// Waits that long, unless the client closes or sends before; true when it has closed.
  [[nodiscard]] bool isClosedByPeer(std::chrono::milliseconds limit);

 private:
  int socket_;
};

inline constexpr const char* kPeerAddress = "127.0.0.1";

/// Listens on a free port of an IPv4 address and runs the script for one connection after the
/// other, on a thread of its own; the connection closes when the script returns.
class ScriptedPeer {
 public:
  using Script = std::function<void(PeerConnection&)>;

  explicit ScriptedPeer(Script script, const char* address = kPeerAddress);
  ~ScriptedPeer();
  ScriptedPeer(const ScriptedPeer&) = delete;
  ScriptedPeer& operator=(const ScriptedPeer&) = delete;

  [[nodiscard]] int port() const { return port_; }
  [[nodiscard]] int connections() const;
  /// Waits until it has accepted so many, or the script has finished with so many.
  [[nodiscard]] bool accepts(int connections) const;
  [[nodiscard]] bool finishes(int connections) const;

 private:
  void serve(const Script& script);
  /// Notes a connection that is served from now on; false at the end of the peer's life.
  [[nodiscard]] bool begin(int accepted);
  /// Notes that it has been served; false at the end of the peer's life.
  [[nodiscard]] bool finish();

  int port_ = 0;  // before the listener, whose making sets it
  int listener_ = -1;
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;  // when one of the counts below has changed
  // Guarded by mutex_.
  int connections_ = 0;
  int finished_ = 0;
  int current_ = -1;  // the connection that is being served
  bool ending_ = false;
  std::thread thread_;
};

/// A port of 127.0.0.1 on which nothing listens.
[[nodiscard]] int closedPort();

}  // namespace sorvane::test
