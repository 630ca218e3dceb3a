// Processes, pauses and the name of the host.
#pragma once

#include <memory>

#include "system/LaunchedTask.h"

namespace sorvane {

/// Writes at most `length` bytes of this host's name (the host object's, else the system's) into
/// the caller's buffer, with a terminator where there is room: a name of `length` bytes or more has
/// none. "localhost" when there is no name. Any thread.
void VN_hostName(char* buffer, int length);

/// This host's name as VN_hostName tells it (at most 100 bytes), "_", and the process number. Made
/// at the first call and the same ever after; the text lives as long as the process. Any thread.
[[nodiscard]] const char* VN_processID();

/// Forgets what VN_processID remembers. For tests.
void resetProcessIDForTest();

/// Pauses the calling thread for that many seconds, however many signals arrive; not at all for 0
/// and less.
void VN_sleep(int seconds);

/// Starts the program at `path` without arguments and does not wait for it. The answer tells its
/// process number and when it has ended, and may be dropped at once. Raises NSException when the
/// program cannot be started. Any thread.
std::shared_ptr<LaunchedTask> QB_launch(const char* path);

/// Runs a shell command and waits for it, holding the system lock meanwhile: no wrapper opens or
/// closes a file until it is done. Always 0. Any thread.
int QB_system(const char* command);

}  // namespace sorvane
