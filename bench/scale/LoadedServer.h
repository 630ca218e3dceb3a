// A name server in this process, with many names and watchers registered.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "nameserver/sorvkeyController.h"
#include "platform/Message.h"
#include "platform/NetConnection.h"

namespace sorvane::bench {

/// A connection without a socket.
class Peer final : public NetConnection {
 public:
  using NetConnection::setReplyBuffer;
};

/// A request that is decoded anew at each use, as one from the wire is. It may contain a number,
/// which can be changed.
class Request {
 public:
  Request(std::initializer_list<std::pair<std::string_view, std::string_view>> texts);

  /// Replaces the number, which stands where the texts had `kDigits` zeros in a row.
  void setNumber(std::size_t number);
  [[nodiscard]] const Message& message();

  static constexpr std::size_t kDigits = 7;

 private:
  std::string body_;
  std::size_t numberAt_;
  Message message_;
};

/// The names are "database" and a number of `Request::kDigits` digits, counting from 0. Each name
/// and each watcher has a connection of its own.
class LoadedServer {
 public:
  LoadedServer(std::size_t names, std::size_t watchers);
  ~LoadedServer();
  LoadedServer(const LoadedServer&) = delete;
  LoadedServer& operator=(const LoadedServer&) = delete;

  [[nodiscard]] sorvkeyController& controller() { return controller_; }
  [[nodiscard]] std::size_t names() const { return ports_.size(); }
  [[nodiscard]] std::size_t watchers() const { return watchers_.size(); }
  [[nodiscard]] Peer& watcher(std::size_t index) { return *watchers_[index]; }

  /// Delivers a request as a serving thread does, or as a waiting thread does when that is not
  /// possible. Returns the reply without the lists that it shares, valid until the next call;
  /// raises when there is none.
  std::string_view ask(Peer& sender, Request& request);
  /// Does the same and returns a copy of the reply, with the lists that it shares.
  [[nodiscard]] std::string wholeReply(Peer& sender, Request& request);
  void open(Peer& peer) { controller_.startCommunication(peer); }
  /// Registers the name with that number on an open connection.
  void registerName(Peer& peer, std::size_t number);
  void close(Peer& peer) { controller_.endCommunication(peer); }

 private:
  [[nodiscard]] std::unique_ptr<Peer> newPeer();

  sorvkeyController controller_;
  Request newPort_;
  Request acceptPort_;
  Request watch_;
  ReplyBuffer reply_;
  std::vector<std::unique_ptr<Peer>> ports_;
  std::vector<std::unique_ptr<Peer>> watchers_;
};

}  // namespace sorvane::bench
