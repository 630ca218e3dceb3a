// Sets of system calls, as systemd has them.
#pragma once

#include <set>
#include <string>
#include <vector>

namespace sorvane::test {

/// The system calls that are left by the words of the lines of a SystemCallFilter: the first line
/// lists what is allowed, and one that begins with "~" takes away from that. The sets are those of
/// the systemd that is installed. An exception when it does not tell them.
[[nodiscard]] std::set<std::string> allowedSystemCalls(const std::vector<std::string>& lines);

}  // namespace sorvane::test
