// What is left of a server whose process has died, when others share its table of descriptors.
#pragma once

#include <vector>

#include "platform/WorkMarks.h"

namespace sorvane {

struct SurvivingSockets {
  int listener = -1;             ///< negative: there is none any more
  std::vector<int> connections;  ///< those that were at rest, and whose peer is still there
};

/// Finds the connections of the listening socket among the descriptors: those of its port. So one
/// that was just accepted, and that nobody had noted yet, is not missed. `listener` is negative if
/// nobody has listened.
[[nodiscard]] SurvivingSockets survivingSockets(int listener, const std::vector<int>& descriptors,
                                                const WorkMarks& marks);

/// Returns those of the descriptors that are Internet sockets.
[[nodiscard]] std::vector<int> internetSockets(const std::vector<int>& descriptors);

}  // namespace sorvane
