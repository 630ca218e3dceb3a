#include "sorvctl/Session.h"

#include <algorithm>
#include <utility>

#include "sorvctl/Failure.h"
#include "sorvctl/Progress.h"
#include "sorvctl/Seconds.h"

namespace sorvctl {

using sorvane::Message;
using sorvane::NetConnection;

int Session::basePort() const {
  return options_.port != 0 ? options_.port : NetConnection::basePortNumber();
}

std::optional<int> Session::givenPort() const {
  return options_.port == 0 ? std::nullopt : std::optional(options_.port);
}

std::optional<std::chrono::milliseconds> Session::timeLimit() const {
  if (!options_.timeoutSeconds) {
    return std::nullopt;
  }
  return inMilliseconds(*options_.timeoutSeconds);
}

std::string Session::hostName() const {
  return options_.host.empty() ? "localhost" : options_.host;
}

void Session::failed() const { throw Failure(Status::notReached, connection_.lastError()); }

void Session::setTimeLimits() {
  using std::chrono::milliseconds;
  const std::optional<milliseconds> given = timeLimit();
  milliseconds connect = given.value_or(NetConnection::kConnectLimit);
  milliseconds reply = given.value_or(NetConnection::kReplyLimit);
  if (end_) {
    const auto left = std::max(
        std::chrono::ceil<milliseconds>(*end_ - std::chrono::steady_clock::now()), milliseconds(1));
    connect = std::min(connect, left);
    reply = std::min(reply, left);
  }
  connection_.setTimeLimits(connect, reply);
}

NetConnection& Session::connection() {
  if (!connection_.isConnected()) {
    const Progress progress("connecting to " + hostName() + " port " + std::to_string(basePort()));
    connection_.setMaximumReplyBytes(options_.maximumReplyBytes);
    setTimeLimits();
    if (!connection_.connectToPort(options_.host, basePort())) {
      failed();
    }
  }
  return connection_;
}

std::optional<Message> Session::ask(const Message& request) {
  NetConnection& open = connection();
  const Progress progress("waiting for the name server of " + hostName());
  if (end_) {
    setTimeLimits();
  }
  std::optional<Message> reply = open.sendDictionary(request);
  if (!reply && !open.lastError().empty()) {
    failed();
  }
  return reply;
}

Message Session::askForDictionary(const Message& request) {
  std::optional<Message> reply = ask(request);
  if (!reply) {
    throw Failure(Status::saidNo, "the server gave no reply to this request");
  }
  return std::move(*reply);
}

std::string Session::askForResult(const Message& request) {
  const Message reply = askForDictionary(request);
  const auto result = reply.text("result");
  if (!result) {
    throw Failure(Status::saidNo, "the server's reply holds no result");
  }
  return std::string(*result);
}

void Session::askForSuccess(const Message& request, std::string_view success) {
  const std::string result = askForResult(request);
  if (result != success) {
    throw Failure(Status::saidNo, "the server answered \"" + result + "\"");
  }
}

void Session::send(const Message& request) {
  NetConnection& open = connection();
  if (end_) {
    setTimeLimits();
  }
  if (!open.sendRequest(request)) {
    failed();
  }
}

std::optional<Message> Session::receive() {
  if (end_) {
    setTimeLimits();
  }
  std::optional<Message> reply = connection_.receiveReply();
  if (!reply && !connection_.lastError().empty()) {
    failed();
  }
  return reply;
}

std::string textOf(const Message& message, std::string_view key) {
  return std::string(message.text(key).value_or(""));
}

Message action(std::string_view name) { return {{"action", name}}; }

}  // namespace sorvctl
