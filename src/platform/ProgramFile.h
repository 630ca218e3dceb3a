// The file of the running program.
#pragma once

#include <string>

namespace sorvane {

/// Returns the path of the program's file as the system told it when this was first asked; empty if
/// it did not. Asked at the start, it tells where the next version of the program will lie, even
/// when the file there has been replaced since. Any thread.
///
/// Implemented in process/ProgramFileLinux.cpp and process/ProgramFileMacos.cpp.
[[nodiscard]] const std::string& programFile();

}  // namespace sorvane
