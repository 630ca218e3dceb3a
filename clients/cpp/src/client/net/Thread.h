// Starts threads of the library.
#pragma once

#include <functional>
#include <thread>

namespace sorvane::client::detail {

/// Starts a thread that takes no signals, so that those of the program reach the program's own. An
/// exception that leaves `body` ends the program. Returns one that cannot be joined when the system
/// has none left.
[[nodiscard]] std::thread startThread(std::function<void()> body);

}  // namespace sorvane::client::detail
