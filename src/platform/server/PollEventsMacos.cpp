#include <poll.h>

#include "platform/server/PollEvents.h"

namespace sorvane {

// There, the end of what a peer sends is a hang-up already.
short peerEndEvents() { return POLLHUP; }

}  // namespace sorvane
