// The framework's own diagnostic output.
#pragma once

#include <string_view>

namespace sorvane {

/// Returns true once `NetConnection::setVerbose` was called in this process. Any thread.
[[nodiscard]] bool diagnosticsWanted();

/// Writes the text to the console if diagnostics are wanted. If the text is costly to build, call
/// `diagnosticsWanted` first. Any thread.
void diagnosticLine(std::string_view text);

}  // namespace sorvane
