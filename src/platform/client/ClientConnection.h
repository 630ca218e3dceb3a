// The part of a NetConnection that exists once it is used as a client.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/HostAddresses.h"
#include "platform/Message.h"
#include "platform/NetConnection.h"
#include "platform/client/ClientSocket.h"
#include "platform/client/ServerPlace.h"

namespace sorvane {

/// Replies that have arrived stay in `input_` unchanged and are read one at a time. A failure
/// closes the connection, because a late reply would be taken for the reply to the next request.
/// Replies that arrived whole before the failure can still be taken.
struct NetConnection::Client {
 public:
  using Deadline = ClientSocket::Deadline;

  [[nodiscard]] bool connect(std::string_view host, int port, Deadline deadline);
  [[nodiscard]] bool connectToRegistered(std::string_view server, std::string_view host,
                                         Deadline deadline);
  [[nodiscard]] bool send(const Message& request, Deadline deadline);
  [[nodiscard]] std::optional<Message> receive(Deadline deadline);
  [[nodiscard]] std::optional<Message> exchange(const Message& request, Deadline deadline);
  void close();

  [[nodiscard]] Deadline connectDeadline() const;
  [[nodiscard]] Deadline replyDeadline() const;
  [[nodiscard]] std::string peerAddress() const { return socket_.peerAddress(); }
  [[nodiscard]] int descriptor() const { return socket_.descriptor(); }

  std::chrono::milliseconds connectLimit = kConnectLimit;
  std::chrono::milliseconds replyLimit = kReplyLimit;
  std::size_t maximumReplyBytes = kMaximumReplyBytes;
  bool connected = false;
  std::string lastError;
  bool closedByPeer = false;

 private:
  /// Closes the old connection and notes where the new one leads. Returns false if there is no such
  /// port.
  [[nodiscard]] bool begin(const std::string& host, int port);
  [[nodiscard]] bool reach(const HostAddresses& found, int port, Deadline deadline);
  /// Returns the host to which this client is connected, given its addresses.
  [[nodiscard]] AskedHost askedHost(const std::string& name,
                                    const std::vector<std::string>& addresses) const;
  bool fail(std::string reason, bool byPeer = false);
  void forgetReplies();
  void dropTakenInput();

  ClientSocket socket_;
  std::string peer_;         // host and port for messages, as given
  ByteBuffer output_;        // the frame that is being sent
  std::string input_;        // what has arrived
  std::size_t taken_ = 0;    // how many bytes of it were read as replies
  std::size_t awaited_ = 0;  // requests whose reply has not been taken
};

}  // namespace sorvane
