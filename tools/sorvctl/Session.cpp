#include "sorvctl/Session.h"

#include <utility>

#include "sorvctl/Failure.h"

namespace sorvctl {

using sorvane::Message;
using sorvane::NetConnection;

int Session::basePort() const { return NetConnection::basePortNumber(); }

std::optional<std::chrono::milliseconds> Session::timeLimit() const {
  if (!options_.timeoutSeconds) {
    return std::nullopt;
  }
  return std::chrono::milliseconds(static_cast<long long>(*options_.timeoutSeconds * 1000));
}

std::string Session::hostName() const {
  return options_.host.empty() ? "localhost" : options_.host;
}

void Session::failed() const { throw Failure(Status::notReached, connection_.lastError()); }

NetConnection& Session::connection() {
  if (!connection_.isConnected()) {
    if (const auto limit = timeLimit()) {
      connection_.setTimeLimits(*limit, *limit);
    }
    if (!connection_.connectToPort(options_.host, basePort())) {
      failed();
    }
  }
  return connection_;
}

std::optional<Message> Session::ask(const Message& request) {
  std::optional<Message> reply = connection().sendDictionary(request);
  if (!reply && !connection_.lastError().empty()) {
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
  if (!connection().sendRequest(request)) {
    failed();
  }
}

std::optional<Message> Session::receive() {
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
