// Filters for the system calls of the calling process, which last until its end.
#pragma once

#include <set>
#include <string>
#include <vector>

namespace sorvane::test {

// Each raises std::runtime_error when the kernel does not take it. A refused call ends the process
// by SIGSYS.

/// RestrictAddressFamilies, with the names of the families, "AF_UNIX".
void allowAddressFamilies(const std::vector<std::string>& families);
/// RestrictNamespaces=yes.
void refuseNamespaces();
/// MemoryDenyWriteExecute=yes.
void refuseWritableCode();
/// RestrictSUIDSGID=yes.
void refuseSetIdFiles();
/// RestrictRealtime=yes.
void refuseRealtime();
/// LockPersonality=yes.
void refuseOtherPersonalities();
/// SystemCallFilter and SystemCallArchitectures=native. Comes last: it refuses further filters.
void allowSystemCalls(const std::set<std::string>& names);

}  // namespace sorvane::test
