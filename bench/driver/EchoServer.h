// The limit: a server that answers by counting bytes.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "driver/Socket.h"

namespace sorvane::bench {

/// One exchange as the echo server sees it.
struct EchoStep {
  std::size_t requestBytes;
  std::string reply;
};

/// Serves for ever, on the calling thread. Looks at no byte: for each `requestBytes` that arrive it
/// sends the reply. Of several steps, a connection goes through one after the other and begins
/// anew after the last; its client then waits for each reply before it sends on.
[[noreturn]] void runEchoServer(const Socket& listener, const std::vector<EchoStep>& steps);

}  // namespace sorvane::bench
