// Where console lines go: standard error and the system's log. Neither is ever waited for.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <span>
#include <string_view>

#include "platform/Descriptor.h"

namespace sorvane {

// ---- ConsoleStream.cpp

/// Standard error, for the writing of one console text. Other programs may share standard error, so
/// its flags are left unchanged.
class StandardErrorStream {
 public:
  StandardErrorStream();

  /// Writes as many bytes as can be written at once and returns their number. A pipe takes up to
  /// PIPE_BUF bytes whole or not at all, so lines that fit in there are not torn by other writers.
  [[nodiscard]] std::size_t write(std::string_view bytes) const;

 private:
  [[nodiscard]] int descriptor() const;
  /// Makes one attempt. Returns how many bytes were written, 0 when it would have to wait, or -1
  /// and sets `errno`.
  [[nodiscard]] ssize_t writeSome(std::string_view bytes) const;

  enum class Kind { file, socket, waiting };  // `waiting`: a pipe or a terminal
  Kind kind_ = Kind::file;
  Descriptor own_;  // the same pipe or terminal opened anew; none: standard error is written to
};

// ---- SystemLog.cpp

/// Writes the lines to the system's log, facility "daemon". Does nothing if no log runs, and stops
/// at the first line that the log cannot take at once.
void writeToSystemLog(std::span<const std::string_view> lines);

}  // namespace sorvane
