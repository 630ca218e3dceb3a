// What a command decided. The controller acts on it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/Message.h"
#include "platform/Reply.h"
#include "registry/HostFacts.h"
#include "registry/Warnings.h"

namespace sorvane {

/// The part of an outcome that is to be written. It is written once `serverLock` is free, and
/// before the reply goes, even when the command raises. A command whose request may leave such
/// notes says that it may wait.
struct Notes {
  /// Returns the line for the log; null: there is none. It is a function, so that a long text is
  /// not made while the lock is held.
  std::string (*logLine)(const Message& request, const HostFacts& host) = nullptr;
  /// The warning for the console.
  Warning warning = Warning::none;

  [[nodiscard]] bool any() const { return logLine != nullptr || warning != Warning::none; }
};

class [[nodiscard]] Outcome {
 public:
  enum class Kind : std::uint8_t {
    reply,          ///< `reply()` goes to the sender
    notRecognised,  ///< no name server command: the info server's turn
    endProcess,     ///< log `logLine()` and end the process; nothing goes to the sender
  };

  /// A reply; not explicit, so that a command returns `Reply::written()`.
  Outcome(Reply reply) : Outcome(Kind::reply, reply, {}) {}
  static Outcome notRecognised() { return {Kind::notRecognised, Reply::none(), {}}; }
  /// `logLine` is a constant.
  static Outcome endProcess(std::string_view logLine) {
    return {Kind::endProcess, Reply::none(), logLine};
  }

  [[nodiscard]] Kind kind() const { return kind_; }
  /// Nil unless the kind is `reply`.
  [[nodiscard]] Reply reply() const { return reply_; }
  [[nodiscard]] std::string_view logLine() const { return logLine_; }

 private:
  Outcome(Kind kind, Reply reply, std::string_view logLine)
      : kind_(kind), reply_(reply), logLine_(logLine) {}

  Kind kind_;
  Reply reply_;
  std::string_view logLine_;
};

}  // namespace sorvane
