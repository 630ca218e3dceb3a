// A client of a running name server: one connection that speaks the registry's words.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "integration/Daemon.h"
#include "support/RawConnection.h"
#include "support/Texts.h"

namespace sorvane::test {

/// The body of a dictionary of texts, to be compared byte for byte.
[[nodiscard]] inline std::string textsBody(const Texts& texts) {
  std::string body;
  for (const auto& [key, text] : texts) {
    body += entry(key, text + '\0');
  }
  return body;
}

[[nodiscard]] inline Message textsMessage(const Texts& texts) {
  Message message;
  for (const auto& [key, text] : texts) {
    message.setText(key, text);
  }
  return message;
}

class Client {
 public:
  explicit Client(const Daemon& server) : connection_(server.rawConnection()) {}

  /// The reply's texts in their order; nothing for "no dictionary".
  std::optional<Texts> asks(const Message& message) {
    const auto reply = connection_.ask(message);
    if (!reply) {
      ADD_FAILURE() << "the connection was closed instead of a reply";
      return std::nullopt;
    }
    return reply->kind == 0 ? std::nullopt : textsOf(reply->message());
  }
  std::optional<Texts> asks(const Texts& texts) { return asks(textsMessage(texts)); }
  std::optional<Texts> acts(std::string_view action, const Texts& texts = {}) {
    return asks(request(action, texts));
  }
  /// The text under "result" of an action's reply; "(none)" without one.
  std::string resultOf(std::string_view action, const Texts& texts = {}) {
    const auto reply = acts(action, texts);
    for (const auto& [key, text] : reply.value_or(Texts())) {
      if (key == "result") {
        return text;
      }
    }
    return "(none)";
  }

  // ---- A database

  /// Asks for a port number under that name; returns it.
  std::string asksForPort(std::string_view name, std::string_view host = "dbhost",
                          std::string_view type = "database") {
    const auto reply = asks(
        Message({{"newPort", ""}, {"portName", name}, {"portHost", host}, {"portType", type}}));
    return reply && reply->size() == 1 ? reply->front().second : "(none)";
  }
  bool accepts() { return asks(Message({{"acceptPort", ""}})) == Texts{{"acceptPort", ""}}; }
  /// Asks for a number and accepts; returns the number.
  std::string registers(std::string_view name) {
    std::string number = asksForPort(name);
    EXPECT_TRUE(accepts());
    return number;
  }
  bool reconnects(std::string_view name, std::string_view number = "7000") {
    return asks(reconnection(name, number)).has_value();
  }
  [[nodiscard]] static Message reconnection(std::string_view name, std::string_view number) {
    return Message({{"reconnectPort", name},
                    {"portNumber", number},
                    {"portHost", "dbhost"},
                    {"portType", "database"}});
  }

  // ---- A tool

  /// What is known of a name; {"notFound"} when nothing is.
  std::optional<Texts> finds(std::string_view name) {
    return asks(Message({{"findPort", name}, {"portHost", "localhost"}}));
  }
  /// The port number under a name; "notFound" when there is none.
  std::string numberOf(std::string_view name) {
    const auto reply = finds(name);
    return reply && !reply->empty() ? reply->front().second : "(none)";
  }
  bool knows(std::string_view name) { return numberOf(name) != "notFound"; }
  /// "YES" or "NO".
  std::string didPortsChange() { return resultOf("didPortsChange"); }
  std::string changeTimestamp() { return resultOf("changeTimestamp"); }
  /// The states, and the alerts, of all databases.
  std::string states() { return resultOf("databaseStates"); }
  std::string alerts() {
    const auto reply = acts("databaseStates");
    return reply && reply->size() == 2 ? reply->back().second : "(none)";
  }

  [[nodiscard]] RawConnection& connection() { return connection_; }
  void closes() { connection_.close(); }

 private:
  RawConnection connection_;
};

/// The first client of a name server that was launched, made as soon as that listens. No connection
/// came before it, the end of which could still be under way and tell watchers of a change.
[[nodiscard]] inline Client firstClientOf(const Daemon& server) {
  std::optional<Client> client;
  EXPECT_TRUE(waitUntil([&] {
    client.emplace(server);
    return client->connection().isConnected();
  })) << server.console();
  return std::move(*client);
}

/// A name server with settings of the test's, and a client of it that registers nothing.
class Served : public ::testing::Test {
 protected:
  void SetUp() override {
    server_.launch();
    tool_.emplace(firstClientOf(server_));
    ASSERT_EQ(tool_->asks(Message({{"ping", ""}})), kEmptyDictionary) << server_.console();
  }
  [[nodiscard]] Client& tool() { return *tool_; }

  Daemon server_;

 private:
  std::optional<Client> tool_;
};

}  // namespace sorvane::test
