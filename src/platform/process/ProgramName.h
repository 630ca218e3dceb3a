// The name under which the running program was started.
#pragma once

namespace sorvane {

/// Returns the last component of the name under which the program was started. The text lives as
/// long as the process. Any thread. Implemented in ProgramNameLinux.cpp and ProgramNameMacos.cpp.
[[nodiscard]] const char* programName();

}  // namespace sorvane
