// How many connections a server can have open. Implemented in server/ConnectionLimit.cpp.
#pragma once

#include <cstdint>

namespace sorvane {

/// Returns for how many connections a limit of open files leaves room, at least 1: the serving
/// threads and everything else have files, too. `threads` is the setting of that name, so 0 means
/// one for each core that this process may use. Any thread.
[[nodiscard]] int connectionsWithin(std::uint64_t openFiles, int threads);

}  // namespace sorvane
