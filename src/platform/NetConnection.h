// Connections: the client side, the context of a connection that is served, and the server.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Message.h"
#include "platform/NetConnectionDelegate.h"

namespace sorvane {

class KeptReader;
struct SurvivingSockets;

/// One connection, of either side. A client's connection belongs to the thread that uses it. A
/// connection that is served belongs to the server, which hands it to one delegate call at a time.
class NetConnection {
 public:
  static constexpr std::chrono::milliseconds kConnectLimit{5000};  ///< includes resolving the name
  static constexpr std::chrono::milliseconds kReplyLimit{30000};

  NetConnection();
  virtual ~NetConnection();
  NetConnection(const NetConnection&) = delete;
  NetConnection& operator=(const NetConnection&) = delete;

  // ---- The framework as a whole (server/Server.cpp, server/ListeningSocket.cpp,
  // client/Diagnostics.cpp, client/NameServerHostFile.cpp)

  /// Turns the framework's own diagnostic output on.
  static void setVerbose();
  [[nodiscard]] static int basePortNumber();
  /// Returns the descriptor of a listening TCP socket for `port`, or -1 with the reason in `errno`.
  /// It listens on all addresses (IPv6 and IPv4 in one socket, IPv4 alone where there is no IPv6),
  /// or on 127.0.0.1 alone when the host is local-access-only.
  [[nodiscard]] static int createServerSocketForPort(int port);
  /// Accepts connections on the socket and serves them, on this thread and on others. Does not
  /// return. Raises std::system_error when the system has no descriptors or threads for that; the
  /// delegate must outlive the process even then.
  [[noreturn]] static void runServerForSocket(int socket, NetConnectionDelegate& delegate);
  /// Goes on with the listening socket and the connections that `RunningServer::keep` has written,
  /// in this process or in the program that it has become. Serves then as `runServerForSocket`
  /// does, and raises the same. Reads the description to its end, and needs it no more when
  /// `servingBegins` is called. Raises KeptFault if the description, or a descriptor in it, is not
  /// what it should be; no descriptor was closed then. No connection is closed because a setting
  /// allows less than it did; but no time that is left is longer than the settings allow.
  [[noreturn]] static void continueServer(KeptReader& reader, NetConnectionDelegate& delegate);
  /// Goes on with the sockets of a process that has died. Nothing of their requests was taken that
  /// is not answered. Serves then as `runServerForSocket` does, and raises the same. Raises
  /// KeptFault if a descriptor is not what it should be.
  [[noreturn]] static void continueServer(const SurvivingSockets& sockets,
                                          NetConnectionDelegate& delegate);
  /// Runs `work`, which may wait for a disk: at once, or on the disk's thread when the caller is a
  /// serving thread. Work for one disk is run in the order of the calls.
  static void performWaiting(Disk disk, std::function<void()> work);
  /// True when the name server host file names another computer and a name server answers there.
  /// Sets `fileFound` to whether the file exists. Takes `kConnectLimit` at most.
  [[nodiscard]] static bool hostFileSearchForNameServer(NetConnection& connection, bool* fileFound);
  [[nodiscard]] static const char* nameserverHostFilePath();
  /// Returns the alias that the settings give to an address, or nothing.
  [[nodiscard]] static std::optional<std::string> aliasForAdress(std::string_view address);

  // ---- The client side (client/ClientConnection.cpp). On failure a call returns false or nothing,
  // and `lastError` tells why.

  /// Connects to a server of the host: "VN_nameserver" and "VN_infoserver" at the base port,
  /// "sorvexec" one below it. For any other, asks the name server of the host and connects to the
  /// port that it tells, at the host that the server has registered. If that host does not resolve,
  /// or is the asked one, connects at the asked host. An empty host means this one.
  [[nodiscard]] bool connectToServer(std::string_view server, std::string_view host);
  /// Connects to a port of a host.
  [[nodiscard]] bool connectToPort(std::string_view host, int port);
  /// Sends a request and waits for its reply. Returns nothing on failure. A nil reply is nothing,
  /// too, with an empty `lastError`.
  [[nodiscard]] std::optional<Message> sendDictionary(const Message& request);
  /// Sends {"data", "action", "parameter"}: the bytes as they are, each text with its NUL.
  [[nodiscard]] std::optional<Message> sendData(std::string_view data, std::string_view action,
                                                std::string_view parameter);
  /// Sends a request without waiting for its reply. `receiveReply` then takes the replies in order.
  /// Replies that arrive meanwhile are kept, so any number of requests may be sent first. One call
  /// reads 64 MiB at most.
  [[nodiscard]] bool sendRequest(const Message& request);
  [[nodiscard]] std::optional<Message> receiveReply();
  /// Returns what poll(2) can wait on until bytes of a reply arrive, or until the other side
  /// closes; -1 when it is not connected. The connection keeps it: for waiting alone. On a
  /// connection that is served, its descriptor until it is closed.
  [[nodiscard]] virtual int descriptor() const;
  /// Closes the connection; does nothing when it is not connected.
  void invalidate();
  [[nodiscard]] bool isConnected() const;
  /// True when the connection was lost because the other side closed it, rather than by a time
  /// limit or a malformed reply.
  [[nodiscard]] bool wasClosedByPeer() const;
  /// Returns why the last call failed, in words; empty after success.
  [[nodiscard]] const std::string& lastError() const;
  /// Sets the time limits of this connection from now on.
  void setTimeLimits(std::chrono::milliseconds connect, std::chrono::milliseconds reply);
  /// From now on a reply whose body is longer than that is a failure, like a malformed one. The
  /// limit is `kMaximumReplyBytes` until it is set, and at most.
  void setMaximumReplyBytes(std::size_t bytes);

  // ---- The context of a connection that is served

  /// Returns the object that the delegate keeps with the connection; null at first.
  template <typename Object>
  [[nodiscard]] std::shared_ptr<Object> contextObject() const {
    return std::static_pointer_cast<Object>(context_);
  }
  /// The same without a share in it: valid as long as the connection holds the object.
  template <typename Object>
  [[nodiscard]] Object* context() const {
    return static_cast<Object*>(context_.get());
  }
  void setContextObject(std::shared_ptr<void> object) { context_ = std::move(object); }

  /// True when the other side runs on this machine, as its address tells: a loopback address, or
  /// one of this machine's interfaces. On a connection without an address, such as one that a test
  /// makes, true.
  [[nodiscard]] virtual bool isFromThisMachine() const { return true; }

  /// Returns a writer for the reply to the request that is being delivered. It writes straight into
  /// the connection's output, and raises NSException when the reply becomes longer than any may be.
  [[nodiscard]] MessageWriter replyWriter() {
    return MessageWriter(*replyBuffer_, kMaximumReplyBytes);
  }

 protected:
  void setReplyBuffer(ReplyBuffer* buffer) { replyBuffer_ = buffer; }

 private:
  struct Client;
  [[nodiscard]] Client& client();

  std::shared_ptr<void> context_;
  ReplyBuffer* replyBuffer_ = nullptr;  // the output of the request that is being delivered
  std::unique_ptr<Client> client_;      // null on a connection that is served
};

}  // namespace sorvane
