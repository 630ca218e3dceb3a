// A plain file, read whole without ever waiting for it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <system_error>
#include <variant>

namespace sorvane {

/// Why there is no content.
struct PlainFileFailure {
  enum class Kind : std::uint8_t {
    systemError,  ///< `error` says which
    noPlainFile,  ///< a folder, a pipe, a device
    tooLong,
  };

  Kind kind;
  std::error_code error;
};

/// Reads a file whole; links are followed. Fails for anything but a plain file and for one that is
/// longer than `maximumBytes`. Returns at once for a pipe or a device, also for one that somebody
/// puts in place of the file meanwhile. Any thread.
[[nodiscard]] std::variant<std::string, PlainFileFailure> readPlainFile(const std::string& path,
                                                                        std::size_t maximumBytes);

}  // namespace sorvane
