// The limit: a server that only counts bytes and sends a stored reply.
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

/// Serves for ever, on the calling thread. It looks at no byte: for each `requestBytes` that arrive
/// it sends the reply. With several steps, a connection goes through them in order and starts over
/// after the last; its client must then wait for each reply before it sends the next request.
[[noreturn]] void runEchoServer(const Socket& listener, const std::vector<EchoStep>& steps);

}  // namespace sorvane::bench
