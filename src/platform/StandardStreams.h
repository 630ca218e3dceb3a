// The standard streams of a process that was started without some of them.
#pragma once

namespace sorvane {

/// Opens /dev/null in place of each standard descriptor (0, 1, 2) that is closed. Otherwise the
/// next file or socket that the process opens would get its number, and what the process prints
/// would go there. Call it first in `main`.
void openClosedStandardStreams();

}  // namespace sorvane
