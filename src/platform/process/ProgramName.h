// The name under which the running program was started.
#pragma once

namespace sorvane {

/// The last component of the program's name, as it was started. Lives as long as the process. Any
/// thread. Implemented once for each operating system.
[[nodiscard]] const char* programName();

}  // namespace sorvane
