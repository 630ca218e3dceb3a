// Reads a password, so that it need not stand on the command line.
#pragma once

#include <string>

namespace sorvctl {

/// Prints `prompt` and reads a line from the terminal without showing what is typed. If standard
/// input is not a terminal, reads its first line without a prompt. Throws a Failure of status
/// `wrongUsage` when there is no line.
[[nodiscard]] std::string readPassword(const std::string& prompt);

}  // namespace sorvctl
