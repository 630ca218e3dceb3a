// The lines by which commands tell of changes of the databases.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "sorvctl/DatabaseList.h"
#include "sorvctl/Session.h"

namespace sorvctl {

using DatabasesByName = std::map<std::string, Database>;

[[nodiscard]] DatabasesByName byName(std::vector<Database> databases);

/// Prints a line for each database that came, went or has changed. `server` is the name server that
/// it belongs to, when there are several: the line begins with that. Prints `most` lines at most,
/// and then one that tells how many more there are.
void printChanges(const Session& session, const std::string& server, const DatabasesByName& before,
                  const DatabasesByName& after, std::size_t most);

/// Prints a line about a name server itself: what has become of it, and perhaps why.
void printServerChange(const Session& session, const std::string& server, const char* change,
                       const std::string& reason = "");

}  // namespace sorvctl
