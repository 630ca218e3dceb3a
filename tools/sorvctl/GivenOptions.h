// The options that all commands share, as they stand on the command line.
#pragma once

#include <optional>
#include <string>

#include "sorvctl/Session.h"

namespace sorvctl {

struct GivenOptions {
  std::string host;                      ///< perhaps with a port; empty: this host
  int port = 0;                          ///< 0: none
  std::optional<double> timeoutSeconds;  ///< for connecting, and for each reply
  bool json = false;
  std::string colour = "auto";
};

/// Returns the options of a session. Throws a Failure of status `wrongUsage` when the host makes no
/// sense, or when two ports were given.
[[nodiscard]] Options optionsOf(const GivenOptions& given);

/// Reads the settings of this process. A port that was given takes the place of theirs. Throws a
/// Failure of status `notReached` when the settings file is bad.
void useSettings(const GivenOptions& given);

/// Turns colours on or off as was given.
void useColours(const GivenOptions& given);

}  // namespace sorvctl
