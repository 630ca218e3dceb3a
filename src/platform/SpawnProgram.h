// Starting another program, which gets neither the files nor the signal settings of this process.
#pragma once

#include <string>

namespace sorvane {

/// Starts the program at `path` and returns its process number. The path is its only argument, and
/// its environment is that of this process. It inherits descriptors 0, 1 and 2 and no others. No
/// signal is blocked, and each has its default action. Raises NSException with the reason if the
/// program cannot be started. The caller waits for the end of the program, unless the system reaps
/// ended children. Any thread.
[[nodiscard]] int spawnProgram(const std::string& path);

}  // namespace sorvane
