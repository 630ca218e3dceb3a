// The keys that several commands read. A key that one command alone reads stands with that command.
#pragma once

#include <string_view>

namespace sorvane::key {

inline constexpr std::string_view portHost = "portHost";
inline constexpr std::string_view portHostAddress = "portHostAddress";
inline constexpr std::string_view portName = "portName";
inline constexpr std::string_view portNumber = "portNumber";
inline constexpr std::string_view portType = "portType";

}  // namespace sorvane::key
