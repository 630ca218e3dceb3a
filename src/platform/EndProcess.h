// The one way in which this process ends by its own decision.
#pragma once

namespace sorvane {

/// Flushes standard output and ends the process with status 0, at once and from any thread. No
/// destructor and no exit handler runs: other threads are still at work on what they would destroy.
[[noreturn]] void endProcess();

}  // namespace sorvane
