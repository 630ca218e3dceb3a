// Connections: the client side, the context of a connection that is served, and the server.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Message.h"
#include "platform/VNThreadLock.h"

namespace sorvane {

class NetConnection;

/// What a handler answers to a request.
class [[nodiscard]] Reply {
 public:
  enum class Kind : std::uint8_t {
    none,        ///< nil: no dictionary
    dictionary,  ///< what was written with the sender's `replyWriter`, perhaps nothing: the empty
                 ///< dictionary
    request,     ///< the request itself, byte for byte
  };

  static Reply none() { return Reply(Kind::none); }
  static Reply dictionary() { return Reply(Kind::dictionary); }
  static Reply request() { return Reply(Kind::request); }

  [[nodiscard]] Kind kind() const { return kind_; }
  bool operator==(const Reply&) const = default;

 private:
  explicit Reply(Kind kind) : kind_(kind) {}
  Kind kind_;
};

/// Requests that came together on one connection and are delivered without waiting, one after the
/// other: the delegate may keep a lock from one delivery to the next, rather than take it for each.
/// A turn is short. It ends, and gives the lock back, before anything but a delivery happens.
class Turn {
 public:
  /// The turn holds this lock.
  [[nodiscard]] bool holds(const VNThreadLock& lock) const { return held_.mutex() == &lock; }
  /// Takes over a lock that this thread holds, the only one of the turn.
  void keep(VNThreadLock& lock) { held_ = {lock, std::adopt_lock}; }

 private:
  std::unique_lock<VNThreadLock> held_;
};

/// The operations that the server calls for each connection: `startCommunication`, then one
/// delivery for each message in order, then `endCommunication` exactly once; never two at the same
/// time for one connection, while different connections are served at the same time. An exception
/// that leaves one of them ends the process.
class NetConnectionDelegate {
 public:
  virtual ~NetConnectionDelegate() = default;

  virtual void startCommunication(NetConnection& connection) = 0;

  /// Delivers on a serving thread, on which nothing may be waited for: neither a lock nor a disk.
  /// Answers nothing when it would have had to wait; the same request is then delivered with
  /// `deliverCommunication` on a thread that may.
  virtual std::optional<Reply> deliverWithoutWaiting(const Message& request, NetConnection& sender,
                                                     Turn& turn);

  /// Delivers one request; may wait. The request and what `replyWriter` wrote live until the next
  /// delivery.
  virtual Reply deliverCommunication(const Message& request, NetConnection& sender) = 0;

  /// The connection is about to close. Runs on a serving thread: hands anything that may wait to
  /// `NetConnection::performWaiting`.
  virtual void endCommunication(NetConnection& connection) = 0;

  virtual void cleanupAfterMessage() {}
  [[nodiscard]] virtual bool reconnect() { return false; }
  [[nodiscard]] virtual bool lazyreconnect() { return false; }
};

/// One connection, of either side. A client's belongs to the thread that uses it; one that is
/// served belongs to the server, which hands it to one delegate operation at a time.
class NetConnection {
 public:
  static constexpr std::chrono::milliseconds kConnectLimit{
      5000};  ///< resolving the host's name included
  static constexpr std::chrono::milliseconds kReplyLimit{30000};

  NetConnection();
  virtual ~NetConnection();
  NetConnection(const NetConnection&) = delete;
  NetConnection& operator=(const NetConnection&) = delete;

  // ---- Of the framework as a whole

  /// Turns the framework's own diagnostic output on.
  static void setVerbose();
  [[nodiscard]] static int basePortNumber();
  /// A listening TCP socket for `port` on all addresses (IPv6 and IPv4 in one, or IPv4 alone where
  /// there is no IPv6), or on 127.0.0.1 when the host is local-access-only. Answers its descriptor,
  /// or -1; `errno` tells why.
  [[nodiscard]] static int createServerSocketForPort(int port);
  /// Accepts connections on the socket and serves them on this thread and further ones; does not
  /// return. Raises std::system_error when the system has no descriptors or threads for that; the
  /// delegate must live on all the same.
  [[noreturn]] static void runServerForSocket(int socket, NetConnectionDelegate& delegate);
  /// Runs `work`, which may wait: at once, or on a thread of its own when the caller is a serving
  /// thread. Work of several calls runs in the order of the calls.
  static void performWaiting(std::function<void()> work);
  /// True when the name server host file names another computer and a name server answers there.
  /// `fileFound` tells whether the file exists. Takes `kConnectLimit` at most.
  [[nodiscard]] static bool hostFileSearchForNameServer(NetConnection& connection, bool* fileFound);
  [[nodiscard]] static const char* nameserverHostFilePath();
  /// The alias that the settings give to an address, or nothing.
  [[nodiscard]] static std::optional<std::string> aliasForAdress(std::string_view address);

  // ---- The client side. What fails answers false or nothing, and `lastError` tells why.

  /// Connects to a server of that host: "VN_nameserver" and "VN_infoserver" at the base port,
  /// "sorvexec" one below it, any other where the host's name server finds it. An empty host means
  /// this one.
  [[nodiscard]] bool connectToServer(std::string_view server, std::string_view host);
  /// Connects to a port of a host.
  [[nodiscard]] bool connectToPort(std::string_view host, int port);
  /// Sends a request and waits for its reply. Nothing on failure; a nil reply is nothing, too, with
  /// an empty `lastError`.
  [[nodiscard]] std::optional<Message> sendDictionary(const Message& request);
  /// Sends {"data", "action", "parameter"}: the bytes exactly as they are, the texts with their
  /// NUL.
  [[nodiscard]] std::optional<Message> sendData(std::string_view data, std::string_view action,
                                                std::string_view parameter);
  /// Sends a request and waits for nothing; replies are then taken with `receiveReply`, in order.
  /// Replies that arrive meanwhile are kept, so any number of requests may be sent first.
  [[nodiscard]] bool sendRequest(const Message& request);
  [[nodiscard]] std::optional<Message> receiveReply();
  /// Closes; nothing happens when it is not connected.
  void invalidate();
  [[nodiscard]] bool isConnected() const;
  /// True when the connection was lost because the other side closed it, rather than by a time
  /// limit or a malformed reply.
  [[nodiscard]] bool wasClosedByPeer() const;
  /// Why the last call failed, in words; empty after success.
  [[nodiscard]] const std::string& lastError() const;
  /// Time limits of this connection from now on.
  void setTimeLimits(std::chrono::milliseconds connect, std::chrono::milliseconds reply);

  // ---- The context of a connection

  /// The object that the delegate keeps with the connection; null at first.
  template <typename Object>
  [[nodiscard]] std::shared_ptr<Object> contextObject() const {
    return std::static_pointer_cast<Object>(context_);
  }
  /// The same without a share in it: valid as long as the connection holds it.
  template <typename Object>
  [[nodiscard]] Object* context() const {
    return static_cast<Object*>(context_.get());
  }
  void setContextObject(std::shared_ptr<void> object) { context_ = std::move(object); }

  /// Writes the reply of the request that is being delivered, straight into the connection's
  /// output.
  [[nodiscard]] MessageWriter replyWriter() { return MessageWriter(*replyBuffer_); }

 protected:
  void setReplyBuffer(ByteBuffer* buffer) { replyBuffer_ = buffer; }

 private:
  friend std::optional<Message> deliverInProcess(NetConnectionDelegate&, const Message&,
                                                 NetConnection&);
  struct Client;
  [[nodiscard]] Client& client();

  std::shared_ptr<void> context_;
  ByteBuffer* replyBuffer_ = nullptr;  // the output of the request that is being delivered
  std::unique_ptr<Client> client_;     // null on a connection that is served
};

/// Delivers one request without a socket: calls `deliverCommunication` and answers the reply
/// dictionary, or nothing for nil. For tests and tools in the same process.
[[nodiscard]] std::optional<Message> deliverInProcess(NetConnectionDelegate& delegate,
                                                      const Message& request,
                                                      NetConnection& sender);

}  // namespace sorvane
