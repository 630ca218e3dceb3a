// Who is served by a host that has no network address of its own.
#pragma once

#include <string_view>

#include "platform/VNHost.h"

namespace sorvane {

/// True for a host that serves its own machine only: its address is the loopback address and is not
/// one that will change.
[[nodiscard]] inline bool isLocalOnlyHost(const VNHost& host) {
  return host.address() == "127.0.0.1" && !host.isDynamic();
}

/// True for the two texts, compared exactly, that mean the same machine.
[[nodiscard]] inline bool isLoopbackName(std::string_view address) {
  return address == "127.0.0.1" || address == "localhost";
}

}  // namespace sorvane
