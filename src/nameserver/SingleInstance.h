// One name server for each host: the parts that depend on nothing.
#pragma once

#include <functional>
#include <string_view>

namespace sorvane {

/// Seconds between two checks of a dynamic address.
inline constexpr int kAddressCheckSeconds = 30;

/// Comes back when `isStillValid` answers no; calls `sleep` with `kAddressCheckSeconds` after each
/// yes.
void watchAddress(const std::function<bool()>& isStillValid,
                  const std::function<void(int seconds)>& sleep);

/// The host in the text that names another name server: what comes before its last underscore, or
/// all of it. A view into `text`.
[[nodiscard]] std::string_view hostOfNameserver(std::string_view text);

}  // namespace sorvane
