// The version texts, beside those that sorvkeyController declares.
#pragma once

#include <string>

namespace sorvane {

class ProcessInfo;

/// The system's version text, or "MacOS X 10.?" when `system` does not tell one.
[[nodiscard]] std::string platformNameOf(const ProcessInfo& system);

}  // namespace sorvane
