// The TCP socket of a client. Every operation has a time limit.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sorvane {

/// Has one connection at a time and belongs to one thread. Handles bytes only; the caller handles
/// frames.
class ClientSocket {
 public:
  using Deadline = std::chrono::steady_clock::time_point;
  struct Reason {
    std::string words;
    bool closedByPeer = false;
  };
  /// nullopt on success.
  using Failure = std::optional<Reason>;

  ClientSocket();
  ~ClientSocket();
  ClientSocket(const ClientSocket&) = delete;
  ClientSocket& operator=(const ClientSocket&) = delete;

  /// Connects to the first of the numeric addresses where a server accepts. There must be at least
  /// one. Each gets an equal share of the time that is left, so that a silent one does not use up
  /// the time of the others.
  [[nodiscard]] Failure connect(const std::vector<std::string>& addresses, int port,
                                Deadline deadline);

  /// Sends all bytes. While the peer takes none, the bytes that it sends are appended to `input`,
  /// so that a peer which waits until its replies are read goes on. After a failure `input`
  /// contains what had arrived before. Reading ends at the deadline, and when `input` has
  /// `maximumInput` bytes or more.
  [[nodiscard]] Failure send(std::string_view bytes, std::string& input, std::size_t maximumInput,
                             Deadline deadline);

  /// Waits for at least one byte and appends what arrives to `input`. After the deadline it fails,
  /// even if bytes keep coming.
  [[nodiscard]] Failure receive(std::string& input, Deadline deadline);

  /// Returns the numeric address of the peer; empty if there is none.
  [[nodiscard]] std::string peerAddress() const;

  /// Returns the descriptor, which the socket keeps.
  [[nodiscard]] int descriptor() const;

  void close();

 private:
  struct Loop;
  std::unique_ptr<Loop> loop_;
};

}  // namespace sorvane
