// The sums that the port map keeps, counted anew.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "registry/Registry.h"

namespace sorvane::fuzz {

/// Requires that every sum of the map is what a walk over everything gives, and within the limits.
/// `names` are all names that may be in the map, `open` the records of the open connections.
void requireSumsFit(Registry& registry, const RegistryLimits& limits,
                    const std::set<std::string>& names,
                    const std::vector<const PortDescriptor*>& open);

}  // namespace sorvane::fuzz
