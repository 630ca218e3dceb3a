// One name server for each host: the functions that need no controller.
#pragma once

#include <functional>
#include <string_view>

namespace sorvane {

/// The lock that only one name server of a host holds.
inline constexpr const char* kProcessLockName = "sorvinfo";

/// Seconds between two checks of a dynamic address.
inline constexpr int kAddressCheckSeconds = 30;

/// Calls `isStillValid` until it returns false. Calls `sleep` with `kAddressCheckSeconds` after
/// each true.
void watchAddress(const std::function<bool()>& isStillValid,
                  const std::function<void(int seconds)>& sleep);

/// Returns the host in the name of another host's name server: what stands before the last
/// underscore, or all of `text` when it has none. A view into `text`.
[[nodiscard]] std::string_view hostOfNameserver(std::string_view text);

}  // namespace sorvane
