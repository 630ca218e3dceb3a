// A database that a name server knows.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>

#include "sorvctl/PortRequests.h"

namespace sorvctl {

/// A database. Fields that are not known are empty.
struct Database {
  Port port;
  std::string state;
  std::string alert;
  /// Its connection has closed and the name stayed. Not known of a name server that does not tell.
  bool left = false;
  /// When the alert was set, by the server's clock, in seconds since 1 January 2001. Nothing when
  /// the server does not tell.
  std::optional<double> alertTime = std::nullopt;

  /// The state for people. That of a database whose connection has closed means nothing any more.
  [[nodiscard]] std::string shownState() const { return left ? "left" : state; }
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

}  // namespace sorvctl
