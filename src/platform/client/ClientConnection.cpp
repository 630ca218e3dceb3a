#include "platform/client/ClientConnection.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "platform/HostAddresses.h"
#include "platform/Settings.h"
#include "platform/VNHost.h"
#include "platform/client/Diagnostics.h"
#include "platform/client/ServerPlace.h"
#include "platform/wire/Frame.h"

namespace sorvane {

namespace {

constexpr std::size_t kKeptInputBytes = std::size_t{1} << 20;
constexpr int kLastPort = 65535;
constexpr const char* kThisHostAddress = "127.0.0.1";

ClientSocket::Deadline afterNow(std::chrono::milliseconds limit) {
  return std::chrono::steady_clock::now() + limit;
}

std::string nameOfHost(std::string_view host) {
  return std::string(host.empty() ? std::string_view(kThisHostAddress) : host);
}

std::optional<int> portOfText(std::string_view text) {
  int port = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  if (error != std::errc() || end != text.data() + text.size()) {
    return std::nullopt;
  }
  return port;
}

}  // namespace

// ---- The connection, in terms of deadlines

bool NetConnection::Client::fail(std::string reason, bool byPeer) {
  closedByPeer = byPeer;
  lastError = std::move(reason);
  socket_.close();
  connected = false;
  diagnosticLine(lastError);
  return false;
}

void NetConnection::Client::forgetReplies() {
  input_.clear();
  taken_ = 0;
  awaited_ = 0;
}

void NetConnection::Client::close() {
  socket_.close();
  connected = false;
  forgetReplies();
}

NetConnection::Client::Deadline NetConnection::Client::connectDeadline() const {
  return afterNow(connectLimit);
}

NetConnection::Client::Deadline NetConnection::Client::replyDeadline() const {
  return afterNow(replyLimit);
}

bool NetConnection::Client::connect(std::string_view host, int port, Deadline deadline) {
  const std::string name = nameOfHost(host);
  return begin(name, port) && reach(addressesOfHost(name, deadline), port, deadline);
}

bool NetConnection::Client::begin(const std::string& host, int port) {
  close();
  lastError.clear();
  closedByPeer = false;
  peer_ = host + " port " + std::to_string(port);
  return (port >= 1 && port <= kLastPort) ||
         fail("cannot connect to " + peer_ + ": there is no such port");
}

bool NetConnection::Client::reach(const HostAddresses& found, int port, Deadline deadline) {
  if (found.addresses.empty()) {
    return fail("cannot connect to " + peer_ + ": " + found.failure);
  }
  if (const ClientSocket::Failure failure = socket_.connect(found.addresses, port, deadline)) {
    return fail("cannot connect to " + peer_ + ": " + failure->words);
  }
  connected = true;
  if (diagnosticsWanted()) {
    diagnosticLine("connected to " + peer_ + " at " + peerAddress());
  }
  return true;
}

bool NetConnection::Client::connectToRegistered(std::string_view server, std::string_view host,
                                                Deadline deadline) {
  const std::string name = nameOfHost(host);
  if (!begin(name, basePortNumber())) {
    return false;
  }
  const HostAddresses found = addressesOfHost(name, deadline);
  if (!reach(found, basePortNumber(), deadline)) {
    return false;
  }
  const AskedHost asked = askedHost(name, found.addresses);
  // A name server that serves its own machine alone replies to "localhost" and "127.0.0.1" only.
  const std::string ownName = asked.isThisHost ? "localhost" : name;
  const std::string ownAddress =
      asked.isThisHost ? kThisHostAddress : asked.place.addresses.front();
  const std::string nameServer = "the name server at " + peer_;
  const std::optional<Message> reply = exchange(
      {{"findPort", server}, {"portHost", ownName}, {"portHostAddress", ownAddress}}, deadline);
  if (!reply) {
    return fail(lastError.empty() ? nameServer + " does not serve this host" : lastError);
  }
  if (reply->contains("notFound")) {
    return fail(nameServer + " knows no \"" + std::string(server) + "\"");
  }
  const std::optional<int> port = portOfText(reply->text("portNumber").value_or(""));
  if (!port) {
    return fail(nameServer + " gave no port number for \"" + std::string(server) + "\"");
  }
  // The reply's "portHostAddress" is no help: it is the one that the request contained.
  const HostPlace place =
      placeOfServer(std::string(reply->text("portHost").value_or("")), asked, deadline);
  return begin(place.name, *port) && reach({place.addresses, {}}, *port, deadline);
}

AskedHost NetConnection::Client::askedHost(const std::string& name,
                                           const std::vector<std::string>& addresses) const {
  AskedHost asked{{name, addresses}, VNHost::currentHost().isThisHost(peerAddress())};
  std::vector<std::string>& all = asked.place.addresses;
  // A server may listen on another address of its host than the name server.
  if (asked.isThisHost) {
    all.emplace_back(kThisHostAddress);
  }
  all.insert(all.begin(), peerAddress());
  all.erase(std::remove(all.begin() + 1, all.end(), all.front()), all.end());
  return asked;
}

bool NetConnection::Client::send(const Message& request, Deadline deadline) {
  lastError.clear();
  if (!connected) {
    lastError = "not connected";
    return false;
  }
  output_.clear();
  appendFrame(output_, request.body());
  const std::size_t maximumInput = input_.size() + maximumReplyBytes;
  if (const ClientSocket::Failure failure =
          socket_.send(output_.view(), input_, maximumInput, deadline)) {
    return fail("cannot send to " + peer_ + ": " + failure->words, failure->closedByPeer);
  }
  ++awaited_;
  return true;
}

std::optional<Message> NetConnection::Client::receive(Deadline deadline) {
  lastError.clear();
  if (awaited_ == 0) {
    lastError = connected ? "no request waits for a reply" : "not connected";
    return std::nullopt;
  }
  while (true) {
    const std::string_view arrived = std::string_view(input_).substr(taken_);
    const FrameHeader header = readFrameHeader(arrived, maximumReplyBytes);
    if (header.fault != nullptr) {
      fail("malformed reply from " + peer_ + ": " + header.fault);
      forgetReplies();
      return std::nullopt;
    }
    if (header.complete && arrived.size() - kFrameHeaderBytes >= header.bodyBytes) {
      Message reply;
      if (const char* fault = reply.readBody(arrived.substr(kFrameHeaderBytes, header.bodyBytes))) {
        fail("malformed reply from " + peer_ + ": " + fault);
        forgetReplies();
        return std::nullopt;
      }
      std::optional<Message> owned;
      if (header.kind == FrameKind::dictionary) {
        owned = reply.owned();
      }
      taken_ += kFrameHeaderBytes + header.bodyBytes;
      --awaited_;
      dropTakenInput();
      return owned;
    }
    if (!connected) {
      lastError = "no more replies from " + peer_ + ": the connection was lost";
      awaited_ = 0;
      return std::nullopt;
    }
    if (const ClientSocket::Failure failure = socket_.receive(input_, deadline)) {
      fail("no reply from " + peer_ + ": " + failure->words, failure->closedByPeer);
      forgetReplies();
      return std::nullopt;
    }
  }
}

void NetConnection::Client::dropTakenInput() {
  if (taken_ == input_.size()) {
    taken_ = 0;
    if (input_.capacity() > kKeptInputBytes) {
      std::string().swap(input_);
    } else {
      input_.clear();
    }
  } else if (taken_ > kKeptInputBytes && taken_ > input_.size() / 2) {
    input_.erase(0, taken_);
    taken_ = 0;
  }
}

std::optional<Message> NetConnection::Client::exchange(const Message& request, Deadline deadline) {
  if (awaited_ > 0) {
    lastError = "replies of earlier requests have not been taken";
    return std::nullopt;
  }
  if (!send(request, deadline)) {
    return std::nullopt;
  }
  return receive(deadline);
}

// ---- The public calls

NetConnection::NetConnection() = default;
NetConnection::~NetConnection() = default;

NetConnection::Client& NetConnection::client() {
  if (!client_) {
    client_ = std::make_unique<Client>();
  }
  return *client_;
}

int NetConnection::basePortNumber() { return Settings::current().basePort; }

bool NetConnection::connectToServer(std::string_view server, std::string_view host) {
  const auto deadline = client().connectDeadline();
  if (server == "VN_nameserver" || server == "VN_infoserver") {
    return client().connect(host, basePortNumber(), deadline);
  }
  if (server == "sorvexec") {
    return client().connect(host, basePortNumber() - 1, deadline);
  }
  return client().connectToRegistered(server, host, deadline);
}

bool NetConnection::connectToPort(std::string_view host, int port) {
  return client().connect(host, port, client().connectDeadline());
}

std::optional<Message> NetConnection::sendDictionary(const Message& request) {
  return client().exchange(request, client().replyDeadline());
}

std::optional<Message> NetConnection::sendData(std::string_view data, std::string_view action,
                                               std::string_view parameter) {
  Message request;
  request.setData("data", data).setText("action", action).setText("parameter", parameter);
  return sendDictionary(request);
}

bool NetConnection::sendRequest(const Message& request) {
  return client().send(request, client().replyDeadline());
}

std::optional<Message> NetConnection::receiveReply() {
  return client().receive(client().replyDeadline());
}

int NetConnection::descriptor() const {
  return client_ && client_->connected ? client_->descriptor() : -1;
}

void NetConnection::invalidate() {
  if (client_) {
    client_->close();
  }
}

bool NetConnection::isConnected() const { return client_ && client_->connected; }

bool NetConnection::wasClosedByPeer() const { return client_ && client_->closedByPeer; }

const std::string& NetConnection::lastError() const {
  static const auto* const none = new std::string;  // no destructor runs at exit
  return client_ ? client_->lastError : *none;
}

void NetConnection::setTimeLimits(std::chrono::milliseconds connect,
                                  std::chrono::milliseconds reply) {
  client().connectLimit = connect;
  client().replyLimit = reply;
}

void NetConnection::setMaximumReplyBytes(std::size_t bytes) {
  client().maximumReplyBytes = std::min(bytes, kMaximumReplyBytes);
}

}  // namespace sorvane
