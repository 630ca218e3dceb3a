// IPv4 addresses as text.
#pragma once

#include <string>

namespace sorvane {

/// True when the text is an IPv4 address: four decimal numbers from 0 to 255, joined by dots.
[[nodiscard]] bool isIPv4Address(const std::string& text);

}  // namespace sorvane
