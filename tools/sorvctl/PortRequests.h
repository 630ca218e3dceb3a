// The requests about ports that several commands make.
#pragma once

#include <optional>
#include <string>

#include "platform/Message.h"
#include "sorvctl/Session.h"

namespace sorvctl {

/// A registered port, as the server describes it.
struct Port {
  std::string name;
  std::string number;
  std::string host;
  std::string address;
  std::string type;
};

/// The request for the port with this name on the session's host.
[[nodiscard]] sorvane::Message findRequest(const Session& session, const std::string& name);
/// The port that a reply describes. Nothing when the reply says that there is no such port.
[[nodiscard]] std::optional<Port> portOfReply(const sorvane::Message& reply);

}  // namespace sorvctl
