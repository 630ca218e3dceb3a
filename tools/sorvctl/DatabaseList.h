// The databases that a name server knows.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "sorvctl/PortRequests.h"
#include "sorvctl/Session.h"

namespace sorvctl {

/// A database. Fields that are not known are empty.
struct Database {
  Port port;
  std::string state;
  std::string alert;
};

/// A field besides the name, for what treats them alike.
struct DatabaseField {
  const char* name;  ///< in JSON and in lines for people
  const std::string& (*of)(const Database& database);
};

/// The fields, in the order in which they are printed.
inline constexpr std::array<DatabaseField, 5> kDatabaseFields{{
    {"number", [](const Database& each) -> const std::string& { return each.port.number; }},
    {"host", [](const Database& each) -> const std::string& { return each.port.host; }},
    {"type", [](const Database& each) -> const std::string& { return each.port.type; }},
    {"state", [](const Database& each) -> const std::string& { return each.state; }},
    {"alert", [](const Database& each) -> const std::string& { return each.alert; }},
}};

/// The most databases that are read from one server.
inline constexpr std::size_t kMostDatabases = 1'000'000;

/// Returns the databases in the order of the server's list of states. Throws a Failure of `saidNo`
/// when the list has more than `most` parts.
///
/// The server has two summary lists, states and alerts, each of the form "NAME:TEXT|NAME:TEXT". A
/// ":" or "|" may also be part of a name or text, and the list does not say which it is. So each
/// part of the list of states is read in several ways, and the server is asked for a port of each
/// name that this gives. Many requests go out together, without waiting for each reply. The first
/// reading whose name is registered is taken. If none is, the part is split at its first ":".
[[nodiscard]] std::vector<Database> readDatabases(Session& session,
                                                  std::size_t most = kMostDatabases);

}  // namespace sorvctl
