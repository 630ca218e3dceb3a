// The places to which console lines go, written to without ever waiting for a reader.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string_view>

#include "platform/Descriptor.h"

namespace sorvane {

/// Standard error for the length of one console text. Standard error may be shared with other
/// programs, so its own flags are left as they are.
class StandardErrorStream {
 public:
  StandardErrorStream();

  /// Writes what can be written at once; answers how many bytes that were. Up to PIPE_BUF bytes
  /// go into a pipe whole or not at all.
  [[nodiscard]] std::size_t write(std::string_view bytes) const;

 private:
  [[nodiscard]] int descriptor() const;
  /// One attempt: how many bytes were written; 0 when it would have to wait, -1 and `errno` when it
  /// fails.
  [[nodiscard]] ssize_t writeSome(std::string_view bytes) const;

  enum class Kind { file, socket, waiting };  // `waiting`: pipes, terminals
  Kind kind_ = Kind::file;
  Descriptor own_;  // the same pipe or terminal once more; none: standard error is written to
};

/// Hands the line to the system's log, facility "daemon", where one runs and takes it at once.
void writeToSystemLog(const char* line);

}  // namespace sorvane
