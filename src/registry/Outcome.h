// What a command decided. Acting on it is the controller's part.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/NetConnection.h"

namespace sorvane {

class [[nodiscard]] Outcome {
 public:
  enum class Kind : std::uint8_t {
    reply,          ///< `reply()` is the answer, which may be nil
    notRecognised,  ///< no name server command: the info server's turn
    endProcess,     ///< log `logLine()` and end the process; no answer
  };

  /// The dictionary that was written with the sender's `replyWriter`.
  static Outcome dictionary() { return Outcome(Kind::reply, Reply::dictionary(), {}); }
  /// The request itself, byte for byte.
  static Outcome request() { return Outcome(Kind::reply, Reply::request(), {}); }
  /// No dictionary at all.
  static Outcome noReply() { return Outcome(Kind::reply, Reply::none(), {}); }
  static Outcome notRecognised() { return Outcome(Kind::notRecognised, Reply::none(), {}); }
  /// `logLine` is a constant.
  static Outcome endProcess(std::string_view logLine) {
    return Outcome(Kind::endProcess, Reply::none(), logLine);
  }

  [[nodiscard]] Kind kind() const { return kind_; }
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
