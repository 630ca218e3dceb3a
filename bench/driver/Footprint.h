// Figures of the name server that are no ratio: memory, start, commands, idling.
#pragma once

#include "driver/Options.h"
#include "driver/Rows.h"

namespace sorvane::bench {

/// Prints the memory that each idle connection, and each registered one, costs the server.
void printMemory(const Options& options, const Cores& cores);
/// Prints the time from the start of the process to its first reply.
void printStart(const Options& options, const Cores& cores);
/// Prints how long commands of sorvctl take.
void printCommands(const Options& options, const Cores& cores);
/// Prints how often the idle name server wakes up, and the time it then uses.
void printRest(const Options& options, const Cores& cores);

}  // namespace sorvane::bench
