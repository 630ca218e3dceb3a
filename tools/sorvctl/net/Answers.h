// Asks many name servers at the same time.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "sorvctl/DatabaseList.h"
#include "sorvctl/net/Servers.h"

namespace sorvctl::net {

/// What came of asking a name server.
struct Answer {
  Server server;
  bool answered = false;
  std::string failure;              ///< if it has not answered: why, in words
  std::vector<Database> databases;  ///< if it has; ordered by name
};

/// Asks each for its databases. All of them have the same time, whatever they send: the function
/// returns at its end at the latest. Returns the answers in the order of the servers.
[[nodiscard]] std::vector<Answer> askAll(const std::vector<Server>& servers, const Options& common,
                                         std::chrono::milliseconds time);

}  // namespace sorvctl::net
