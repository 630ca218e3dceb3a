// Going on with the connections of another program.
#pragma once

#include <memory>
#include <vector>

#include "platform/KeptForm.h"
#include "platform/server/KeptServer.h"
#include "platform/server/ServingLoop.h"

namespace sorvane {

/// Checks that the descriptors are open sockets of their kind. Makes them such as do not wait and
/// are closed on exec. Raises KeptFault.
void checkKeptDescriptors(const KeptServer& kept);

/// Gives the connections to the loops, which do not run yet: as many to each. Reads the rest of the
/// description, which is the delegate's; `reader` is null if there is none, after a death. Raises
/// KeptFault, or what the delegate raises: no connection was made then, and the descriptors are as
/// they were.
void continueConnections(const KeptServer& kept, KeptReader* reader,
                         const std::vector<std::unique_ptr<ServingLoop>>& loops,
                         ServerContext& context);

/// Writes the listening socket and the connections of the loops during a pause.
void keepConnections(KeptWriter& writer, int listener,
                     const std::vector<std::unique_ptr<ServingLoop>>& loops,
                     const ServerContext& context);

}  // namespace sorvane
