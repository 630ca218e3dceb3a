// What the registry under test holds, in the form of the model's state.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "model/RegistryModel.h"
#include "registry/Registry.h"

namespace sorvane::model {

[[nodiscard]] Record recordOf(const PortDescriptor& record);

/// `names` are all that may be registered, `numbers` the connections by their records, and `open`
/// the records of the connections that are open. The cached lists are taken apart at each "|", also
/// where a name or a text has one.
[[nodiscard]] State stateOf(Registry& registry, const std::set<std::string>& names,
                            const std::map<const PortDescriptor*, int>& numbers,
                            const std::vector<const PortDescriptor*>& open);

}  // namespace sorvane::model
