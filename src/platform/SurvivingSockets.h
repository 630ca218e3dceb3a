// What is left of a server whose process has died, when others share its table of descriptors.
#pragma once

#include <vector>

#include "platform/WorkMarks.h"

namespace sorvane {

struct SurvivingSockets {
  int listener = -1;             ///< negative: there is none
  std::vector<int> connections;  ///< those that were at rest, and whose peer is still there
};

/// Finds them among the descriptors. They tell themselves what they are: the connections are those
/// of the port of the listening socket. So a connection that was just accepted, and that nobody had
/// noted yet, is not missed.
[[nodiscard]] SurvivingSockets survivingSockets(const std::vector<int>& descriptors,
                                                const WorkMarks& marks);

/// Removes those descriptors from `descriptors` that are Internet sockets.
void leaveOutInternetSockets(std::vector<int>& descriptors);

}  // namespace sorvane
