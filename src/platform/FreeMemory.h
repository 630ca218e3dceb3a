// Memory that was freed and that the process still has.
#pragma once

namespace sorvane {

/// Gives the system the pages back in which everything was freed. Call it after freeing much more
/// than is used again soon: it looks through all that is free. Other threads that allocate may wait
/// for it for a moment. Any thread.
///
/// Implemented in process/FreeMemoryLinux.cpp and process/FreeMemoryMacos.cpp.
void returnFreeMemory();

}  // namespace sorvane
