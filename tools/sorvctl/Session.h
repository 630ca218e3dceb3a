// One run of sorvctl: its options and its connection to the name server.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Message.h"
#include "platform/NetConnection.h"

namespace sorvctl {

/// The options that all commands share.
struct Options {
  std::string host;                      ///< of the name server; empty: this host
  std::optional<double> timeoutSeconds;  ///< nothing: the limits of NetConnection
  bool json = false;
  int port = 0;  ///< the base port of the name server; 0: that of the settings
  std::size_t maximumReplyBytes = sorvane::kMaximumReplyBytes;  ///< a longer reply is a failure
};

/// Connects at the first request and keeps the connection. A request throws a Failure of status
/// `notReached` when the server cannot be reached or does not reply.
class Session {
 public:
  /// With an `end`, as `endBy`.
  explicit Session(Options options,
                   std::optional<std::chrono::steady_clock::time_point> end = std::nullopt)
      : options_(std::move(options)), end_(end) {}

  [[nodiscard]] bool json() const { return options_.json; }
  [[nodiscard]] const Options& options() const { return options_; }
  [[nodiscard]] const std::string& host() const { return options_.host; }
  [[nodiscard]] int basePort() const;
  /// The base port of the command line. Nothing: that of the settings holds.
  [[nodiscard]] std::optional<int> givenPort() const;
  /// The time limit of the command line. Nothing: the limits of NetConnection hold.
  [[nodiscard]] std::optional<std::chrono::milliseconds> timeLimit() const;
  /// The name of the server's host for use in a request; "localhost" for this host.
  [[nodiscard]] std::string hostName() const;
  /// Lets nothing that is asked from now on take longer than to this time.
  void endBy(std::chrono::steady_clock::time_point end) { end_ = end; }
  [[nodiscard]] std::optional<std::chrono::steady_clock::time_point> end() const { return end_; }

  /// Sends a request and returns the reply. Nothing when the reply is "no dictionary".
  [[nodiscard]] std::optional<sorvane::Message> ask(const sorvane::Message& request);
  /// The same, but throws a Failure of status `saidNo` for "no dictionary".
  [[nodiscard]] sorvane::Message askForDictionary(const sorvane::Message& request);
  /// Sends a request and returns the text under "result" in the reply. Throws a Failure of status
  /// `saidNo` when there is none.
  [[nodiscard]] std::string askForResult(const sorvane::Message& request);
  /// Sends a request. Throws a Failure of status `saidNo` when its "result" is not `success`.
  void askForSuccess(const sorvane::Message& request, std::string_view success);

  /// Sends a request without waiting for the reply. `receive` returns the replies in the order of
  /// the requests.
  void send(const sorvane::Message& request);
  /// Returns the next reply. Nothing when it is "no dictionary".
  [[nodiscard]] std::optional<sorvane::Message> receive();

  /// The connection. Connects if there is none yet.
  sorvane::NetConnection& connection();
  /// Closes the connection. The next request connects again.
  void close() { connection_.invalidate(); }

 private:
  [[noreturn]] void failed() const;
  void setTimeLimits();

  Options options_;
  std::optional<std::chrono::steady_clock::time_point> end_;
  sorvane::NetConnection connection_;
};

/// The text under a key; empty when there is none.
[[nodiscard]] std::string textOf(const sorvane::Message& message, std::string_view key);

/// The request {"action": NAME}.
[[nodiscard]] sorvane::Message action(std::string_view name);

}  // namespace sorvctl
