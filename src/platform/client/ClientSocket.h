// The TCP socket of a client, every operation with a time limit.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace sorvane {

/// One connection at a time, of one thread. Bytes only: frames are the business of who uses it.
class ClientSocket {
 public:
  using Deadline = std::chrono::steady_clock::time_point;
  struct Reason {
    std::string words;
    bool closedByPeer = false;
  };
  /// Nothing on success.
  using Failure = std::optional<Reason>;

  ClientSocket();
  ~ClientSocket();
  ClientSocket(const ClientSocket&) = delete;
  ClientSocket& operator=(const ClientSocket&) = delete;

  /// Connects to the first address of the host that answers; each gets an equal share of the time
  /// that is left, so that one that is silent does not use up the time of the others.
  [[nodiscard]] Failure connect(const std::string& host, int port, Deadline deadline);

  /// Sends all bytes. While the peer takes none, what it sends is appended to `input`: a peer that
  /// waits for its replies to be read goes on, whatever there is to send. After a failure `input`
  /// holds what had arrived before it.
  [[nodiscard]] Failure send(std::string_view bytes, std::string& input, Deadline deadline);

  /// Waits for bytes and appends them to `input`, one at least.
  [[nodiscard]] Failure receive(std::string& input, Deadline deadline);

  /// The numeric address of the peer; empty when there is none.
  [[nodiscard]] std::string peerAddress() const;

  void close();

 private:
  struct Loop;
  std::unique_ptr<Loop> loop_;
};

}  // namespace sorvane
