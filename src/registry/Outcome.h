// What a command decided. The controller acts on it.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/Reply.h"

namespace sorvane {

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
