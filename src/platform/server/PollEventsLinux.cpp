#include <poll.h>

#include "platform/server/PollEvents.h"

namespace sorvane {

short peerEndEvents() { return POLLRDHUP; }

}  // namespace sorvane
