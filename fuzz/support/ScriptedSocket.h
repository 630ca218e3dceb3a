// A peer without a network: the input decides what a client receives.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "support/Pieces.h"

namespace sorvane::fuzz {

/// Takes the place of the product's ClientSocket, and of the system's resolver. A target that has
/// ScriptedSocket.cpp reaches no network.
struct PeerScript {
  Pieces stream{"", 0};            ///< what the peer sends
  bool sendsEarly = false;         ///< a piece arrives with each request that is sent
  bool endsByTimeout = false;      ///< the peer falls silent in the end; else it closes
  std::optional<int> failingSend;  ///< this call of `send` fails, and all that is left arrives

  // ---- What the client did

  std::vector<std::string> resolved;   ///< the names that it asked the resolver for
  std::vector<std::string> addresses;  ///< where it connected last
  int port = 0;
  int sends = 0;
};

/// The script of the connections from now on.
extern PeerScript peer;

/// What the resolver returns for every name.
inline constexpr const char* kResolvedAddress = "192.0.2.7";

}  // namespace sorvane::fuzz
