// A password that never stands on a command line.
#pragma once

#include <string>

namespace sorvctl {

/// Asks for it on the terminal without showing what is typed; where standard input is no terminal,
/// its first line is taken. A Failure when there is none.
[[nodiscard]] std::string readPassword(const std::string& prompt);

}  // namespace sorvctl
