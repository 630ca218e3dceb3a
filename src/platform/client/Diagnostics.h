// The framework's own diagnostic output.
#pragma once

#include <string_view>

namespace sorvane {

/// True once `NetConnection::setVerbose` was called in this process. Any thread.
[[nodiscard]] bool diagnosticsWanted();

/// Writes the text to the console when diagnostics are wanted. A caller whose text costs something
/// to build asks `diagnosticsWanted` first. Any thread.
void diagnosticLine(std::string_view text);

}  // namespace sorvane
