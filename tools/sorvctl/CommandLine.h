// The command line: the table of words, the common options, and what becomes of failures.
#pragma once

namespace sorvctl {

/// Carries out the command line and answers the status of the process; `words[0]` is the program.
int runCommandLine(int count, const char* const* words);

}  // namespace sorvctl
