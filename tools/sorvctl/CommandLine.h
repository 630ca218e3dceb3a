// The command line: the options that all commands share, and how failures become exit statuses.
#pragma once

namespace sorvctl {

/// Carries out the command line and returns the exit status of the process. `arguments[0]` is the
/// program's name.
int runCommandLine(int count, const char* const* arguments);

}  // namespace sorvctl
