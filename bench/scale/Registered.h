// A name server in this process with as many names and watchers as wanted.
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

/// A request that is decoded anew at each use, as one from the wire is, and whose last digits can
/// be changed in between.
class Request {
 public:
  Request(std::initializer_list<std::pair<std::string_view, std::string_view>> texts);

  /// Writes the number over the first `kDigits` zeros in a row.
  void setNumber(std::size_t number);
  [[nodiscard]] const Message& message();

  static constexpr std::size_t kDigits = 7;

 private:
  std::string body_;
  std::size_t numberAt_;
  Message message_;
};

/// The names are "database" and a number of `Request::kDigits` digits, from 0 on; each name, and
/// each watcher, is a connection of its own.
class Registered {
 public:
  Registered(std::size_t names, std::size_t watchers);
  ~Registered();
  Registered(const Registered&) = delete;
  Registered& operator=(const Registered&) = delete;

  [[nodiscard]] sorvkeyController& controller() { return controller_; }
  [[nodiscard]] std::size_t names() const { return ports_.size(); }
  [[nodiscard]] std::size_t watchers() const { return watchers_.size(); }
  [[nodiscard]] Peer& watcher(std::size_t index) { return *watchers_[index]; }

  /// Delivers a request; raises when it has no reply. The bytes of the reply live until the next.
  std::string_view ask(Peer& sender, Request& request);
  /// Opens a connection that registers a name with that number.
  void registerName(Peer& peer, std::size_t number);
  void close(Peer& peer) { controller_.endCommunication(peer); }

 private:
  [[nodiscard]] std::unique_ptr<Peer> open();

  sorvkeyController controller_;
  Request newPort_;
  Request acceptPort_;
  Request watch_;
  ByteBuffer reply_;
  std::vector<std::unique_ptr<Peer>> ports_;
  std::vector<std::unique_ptr<Peer>> watchers_;
};

}  // namespace sorvane::bench
