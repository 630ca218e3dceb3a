// What was found about a port, as parts of other texts.
#pragma once

#include <string>
#include <string_view>

#include "sorvctl/PortRequests.h"
#include "sorvctl/Session.h"

namespace sorvctl {

/// Where a client connects to.
struct Target {
  std::string host;     ///< never empty
  std::string number;   ///< of the port, decimal: 1 to 65535
  std::string address;  ///< by which this program calls the name server's host
};

/// Returns where clients of a port connect to: at the host that is registered, or, where that is
/// missing or a name of the loopback interface, at the host of the name server. Throws a Failure of
/// status `saidNo` when the server tells a host, an address or a number that cannot be one. So what
/// it tells can neither be taken for an option nor mean something to a shell.
[[nodiscard]] Target targetOf(const Session& session, const Port& port);

/// Returns the text with each {host}, {number} and {address} replaced. An address of IPv6 gets its
/// brackets where a URL wants them: behind "//" and before ":". All else stays as it is.
[[nodiscard]] std::string filledIn(std::string_view text, const Target& target);

}  // namespace sorvctl
