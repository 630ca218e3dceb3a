// The databases of a name server of an earlier version, which does not tell what has changed.
#pragma once

#include <cstddef>
#include <vector>

#include "sorvctl/Database.h"
#include "sorvctl/Session.h"

namespace sorvctl {

/// Returns the databases in the order of the server's list of states. Throws a Failure of `saidNo`
/// when the list has more than `most` parts.
///
/// The server has two summary lists, states and alerts, each of the form "NAME:TEXT|NAME:TEXT". A
/// ":" or "|" may also be part of a name or text, and the list does not say which it is. So each
/// part of the list of states is read in several ways, and the server is asked for a port of each
/// name that this gives. Many requests go out together, without waiting for each reply. The first
/// reading whose name is registered is taken. If none is, the part is split at its first ":".
[[nodiscard]] std::vector<Database> readOlderLists(Session& session, std::size_t most);

}  // namespace sorvctl
