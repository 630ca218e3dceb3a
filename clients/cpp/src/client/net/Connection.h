// A connection to a name server.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "client/net/Address.h"
#include "client/net/Descriptor.h"
#include "client/net/Resolver.h"
#include "client/net/Wait.h"
#include "client/wire/Reply.h"
#include "client/wire/Request.h"
#include "sorvane/client.h"

namespace sorvane::client::detail {

/// Sends requests and receives replies. Any error closes the connection. One thread at a time.
class Connection {
 public:
  /// `wake` is a descriptor that ends each wait when it becomes readable, with the error
  /// `timedOut`; -1: none.
  explicit Connection(const NameServer& server, int wake = -1)
      : server_(server), resolver_(server.host), wake_(wake) {}

  /// Connects within the limit of the name server, if there is no connection.
  Result<void> open();
  void close();
  [[nodiscard]] bool isOpen() const { return socket_.isOpen(); }
  /// True while the connection is open and the peer has neither ended it nor sent what nobody has
  /// asked for.
  [[nodiscard]] bool isQuiet() const;
  /// For waits; -1 when it is closed.
  [[nodiscard]] int descriptor() const { return socket_.number(); }

  /// Sends a request and receives its reply, within the limit of the name server and that much
  /// more.
  Result<Reply> ask(const Request& request, std::chrono::milliseconds more = {});
  /// The two halves of it: as many requests can be sent as fit into the buffers of the system
  /// before the first reply is received.
  Result<void> send(const Request& request);
  Result<Reply> receive(std::chrono::milliseconds more = {});

  /// How this client names itself when it looks for a database.
  struct OwnHost {
    std::string name;
    std::string address;
  };
  [[nodiscard]] const OwnHost& ownHost() const { return ownHost_; }
  /// "localhost port 20221".
  [[nodiscard]] std::string place() const;

 private:
  Error fails(ErrorCode code, const std::string& reason);
  Result<void> connectTo(SocketAddress address, const Limit& limit);
  Result<std::size_t> receiveSome(char* bytes, std::size_t most, const Limit& limit);
  Result<Header> receiveHeader(const Limit& limit);

  const NameServer server_;
  Resolver resolver_;
  const int wake_;
  Descriptor socket_;
  OwnHost ownHost_;
};

/// The name of this host.
[[nodiscard]] std::string nameOfThisHost();

}  // namespace sorvane::client::detail
