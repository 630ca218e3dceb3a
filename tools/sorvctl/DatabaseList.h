// The databases that a name server knows, put together from its summary lists.
#pragma once

#include <string>
#include <vector>

#include "sorvctl/PortRequests.h"
#include "sorvctl/Session.h"

namespace sorvctl {

/// A database; what is not known of it is empty.
struct Database {
  Port port;
  std::string state;
  std::string alert;
};

/// Asks for the summary lists and then, on the same connection and without waiting for each answer,
/// for the port of every name that a list may mean. The lists, "NAME:TEXT|NAME:TEXT", do not tell a
/// ":" or "|" of a name from their own: a name with such characters is recognised by the server's
/// knowing it, and what fits nothing is shown as it came. In the order of the server's list.
[[nodiscard]] std::vector<Database> readDatabases(Session& session);

}  // namespace sorvctl
