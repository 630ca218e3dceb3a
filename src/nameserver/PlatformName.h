// The name under which the operating system is reported.
#pragma once

#include <string>

namespace sorvane {

class ProcessInfo;

/// The system's version text, or "MacOS X 10.?" when `system` does not tell one.
[[nodiscard]] std::string platformNameOf(const ProcessInfo& system);

}  // namespace sorvane
