// A service manager, as far as programs that it has started talk to it.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "platform/Descriptor.h"
#include "support/TestFiles.h"
#include "support/WaitUntil.h"

namespace sorvane::test {

/// The socket on which a service manager listens. Each message is some lines, "READY=1\n".
class NotifySocket {
 public:
  enum class Kind { path, abstractName };

  explicit NotifySocket(Kind kind = Kind::path);

  /// The value of NOTIFY_SOCKET.
  [[nodiscard]] const std::string& name() const { return name_; }
  /// For `Program::Options` and `Daemon::launch`: sets the variables of the protocol. Without
  /// `watchdog` (microseconds) there is none.
  [[nodiscard]] std::function<void()> environment(const std::string& watchdog = {}) const;

  /// The next message; nothing if none comes within the limit.
  [[nodiscard]] std::optional<std::string> receive(std::chrono::milliseconds limit = kPatience);
  /// Waits for a message that has this line; false if none comes within `kPatience`.
  [[nodiscard]] bool hears(const std::string& line);
  /// Takes all messages that have come.
  void forgetWhatCame();

  /// Sends to itself until its queue is full.
  void fill() const;

 private:
  TemporaryFolder folder_;
  std::string name_;
  Descriptor socket_;
};

}  // namespace sorvane::test
