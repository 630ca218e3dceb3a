// What it costs that a name server survives crashes, and how long clients hear nothing after one.
#pragma once

#include "driver/Comparison.h"
#include "driver/Options.h"
#include "driver/Setup.h"

namespace sorvane::bench {

/// What the titles of all that is measured of crashes have in common.
inline constexpr const char* kSurvival = "SurviveCrashes";

/// Prints what lookups, registrations and registered connections cost with SurviveCrashes beyond
/// what they cost without, of name servers that take turns; and the silence of a crash, with 1,000
/// and with `idleConnections` connections, each of which has registered a name. Time and memory are
/// those of both processes of the name server.
void printSurvival(const Options& options, const Cores& cores, SampleCounts& counts);

}  // namespace sorvane::bench
