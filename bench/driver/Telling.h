// How soon many hear of a change, and what it costs that they wait for it.
#pragma once

#include "driver/Options.h"
#include "driver/Rows.h"

namespace sorvane::bench {

/// What the titles of all that is measured of waiting have in common.
inline constexpr const char* kWhoWait = "who wait";

/// Prints the time from a change to the moments at which those who wait for it are told: of the
/// name server, of the name server when they ask once a second instead, and of redis when it is
/// installed. Then the memory that each of those who wait costs beyond an idle connection.
void printTelling(const Options& options, const Cores& cores);

}  // namespace sorvane::bench
