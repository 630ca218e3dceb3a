// The places to which console lines go, written to without ever waiting for a reader.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string_view>

namespace sorvane {

/// Standard error for the length of one console text. Standard error may be shared with other
/// programs, so its own flags are left as they are.
class StandardErrorStream {
 public:
  StandardErrorStream();
  ~StandardErrorStream();
  StandardErrorStream(const StandardErrorStream&) = delete;
  StandardErrorStream& operator=(const StandardErrorStream&) = delete;

  /// Writes what can be written at once; answers how many bytes that were. Up to PIPE_BUF bytes
  /// go into a pipe whole or not at all.
  [[nodiscard]] std::size_t write(std::string_view bytes) const;

 private:
  /// One attempt: how many bytes were written; 0 when it would have to wait, -1 and `errno` when it
  /// fails.
  [[nodiscard]] ssize_t writeSome(std::string_view bytes) const;

  enum class Kind { file, socket, waiting };  // `waiting`: pipes, terminals
  Kind kind_ = Kind::file;
  int descriptor_;  // standard error, or a description of its own for the same pipe or terminal
};

/// Hands the line to the system's log, facility "daemon", where one runs and takes it at once.
void writeToSystemLog(const char* line);

}  // namespace sorvane
