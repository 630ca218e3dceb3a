// Starting a program of its own, apart from the files and signals of this process.
#pragma once

#include <string>

namespace sorvane {

/// Starts the program at `path`, with the path as its only argument and this process's environment.
/// It has none of this process's descriptors but 0, 1 and 2, and every signal at its default.
/// Answers its process number; raises NSException, with the reason, when it cannot be started. Any
/// thread. The caller waits for it, where ended children are not reaped by the system.
[[nodiscard]] int spawnProgram(const std::string& path);

}  // namespace sorvane
