// The only function by which a program of the product ends its own process.
#pragma once

namespace sorvane {

/// Flushes standard output and ends the process at once with status 0. Runs no destructor and no
/// exit handler, because other threads still use what these would destroy. Any thread.
[[noreturn]] void endProcess();

}  // namespace sorvane
