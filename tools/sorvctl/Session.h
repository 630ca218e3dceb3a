// One run of sorvctl: its options and its connection to the name server.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Message.h"
#include "platform/NetConnection.h"

namespace sorvctl {

/// The options that every word takes.
struct Options {
  std::string host;                      ///< empty: this host
  int port = 0;                          ///< the base port; 0: that of the settings
  std::optional<double> timeoutSeconds;  ///< nothing: the framework's limits
  bool json = false;
};

/// The connection is made at the first use and kept. Whatever keeps a request from being answered
/// is a Failure of status `notReached`.
class Session {
 public:
  explicit Session(Options options) : options_(std::move(options)) {}

  [[nodiscard]] bool json() const { return options_.json; }
  [[nodiscard]] const std::string& host() const { return options_.host; }
  [[nodiscard]] int basePort() const;
  /// The time limit of the command line; nothing: the framework's own.
  [[nodiscard]] std::optional<std::chrono::milliseconds> timeLimit() const;
  /// The host as a request names it: "localhost" stands for this one.
  [[nodiscard]] std::string hostName() const;

  /// Sends a request and answers its reply; nothing for "no dictionary".
  [[nodiscard]] std::optional<sorvane::Message> ask(const sorvane::Message& request);
  /// The same where "no dictionary" is a refusal: a Failure of status `saidNo`.
  [[nodiscard]] sorvane::Message askForDictionary(const sorvane::Message& request);
  /// The text under "result" of such a reply; a Failure of status `saidNo` when it has none.
  [[nodiscard]] std::string askForResult(const sorvane::Message& request);
  /// Carries out a request whose "result" must be that word.
  void askForSuccess(const sorvane::Message& request, std::string_view success);

  /// Sends a request whose reply is taken later, in order.
  void send(const sorvane::Message& request);
  [[nodiscard]] std::optional<sorvane::Message> receive();

  /// The connection, made now if there is none yet.
  sorvane::NetConnection& connection();

 private:
  [[noreturn]] void failed() const;

  Options options_;
  sorvane::NetConnection connection_;
};

/// The text under a key, or an empty one.
[[nodiscard]] std::string textOf(const sorvane::Message& message, std::string_view key);

/// The action as a request: {"action": ACTION}.
[[nodiscard]] sorvane::Message action(std::string_view name);

}  // namespace sorvctl
