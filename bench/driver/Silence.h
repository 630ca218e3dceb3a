// How long clients hear nothing while the name server is upgraded in place.
#pragma once

#include "driver/Options.h"
#include "driver/Setup.h"

namespace sorvane::bench {

/// What the titles of all that is measured of upgrades have in common.
inline constexpr const char* kUpgrade = "upgrade in place";

/// Prints the longest time that a lookup takes while the name server is upgraded in place, with
/// 1,000 and with `idleConnections` connections, each of which has registered a name. The silence
/// of an upgrade is that of the slowest of the lookups of 50 further connections.
void printSilence(const Options& options, const Cores& cores);

}  // namespace sorvane::bench
