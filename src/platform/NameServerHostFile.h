// The name server host file, which may name another computer as the one that serves. Implemented in
// client/NameServerHostFile.cpp.
#pragma once

#include <string>

namespace sorvane {

/// What a name server host file says.
struct NameServerHostFile {
  bool exists = false;  ///< false also if nobody can tell; `failure` then says why
  std::string host;     ///< the host that it names; empty if it names none or cannot be read
  std::string failure;  ///< why it cannot be read, in words; empty if it can, or is missing
};

/// Reads the file at `path`. It names a host by the first word of its first line that is neither
/// empty nor a comment (#). Any thread.
[[nodiscard]] NameServerHostFile readNameServerHostFile(const std::string& path);

}  // namespace sorvane
