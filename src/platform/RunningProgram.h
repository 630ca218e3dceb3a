// The program that runs in this process, which may have been another one's before.
#pragma once

namespace sorvane {

/// Returns the number of this process. Any thread.
[[nodiscard]] int processNumber();

/// Returns when this program began, in seconds since the reference date. The memory that a process
/// has taken over from its parent tells when that one's program began. Any thread.
[[nodiscard]] double programBegun();

}  // namespace sorvane
