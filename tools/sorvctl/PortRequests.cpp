#include "sorvctl/PortRequests.h"

namespace sorvctl {

sorvane::Message findRequest(const Session& session, const std::string& name) {
  return {{"findPort", name}, {"portHost", session.hostName()}};
}

std::optional<Port> portOfReply(const sorvane::Message& reply) {
  if (!reply.contains("portNumber")) {
    return std::nullopt;
  }
  return Port{textOf(reply, "portName"), textOf(reply, "portNumber"), textOf(reply, "portHost"),
              textOf(reply, "portHostAddress"), textOf(reply, "portType")};
}

}  // namespace sorvctl
