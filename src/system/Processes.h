// Processes, pauses and the name of the host.
#pragma once

#include <memory>

#include "system/LaunchedTask.h"

namespace sorvane {

/// Writes this host's name into the caller's buffer, at most `length` bytes. The terminator is
/// written only when there is room for it: a name of `length` bytes or more has none. The name is
/// that of VNHost, else that of the system, else "localhost". Any thread.
void VN_hostName(char* buffer, int length);

/// Returns this host's name as VN_hostName writes it (at most 100 bytes), "_", and the process
/// number. The first call makes the text and later calls return the same one. It lives as long as
/// the process. Any thread.
[[nodiscard]] const char* VN_processID();

/// Frees the text of VN_processID; the next call makes a new one. For tests.
void resetProcessIDForTest();

/// Pauses the calling thread for that many seconds. Signals do not shorten the pause. Does not
/// pause for 0 or less.
void VN_sleep(int seconds);

/// Starts the program at `path` without arguments and does not wait for it. The returned task tells
/// the process number and when the program has ended; the caller may drop it at once. Raises
/// NSException when the program cannot be started, also when there is no thread to wait for its
/// end. Any thread.
std::shared_ptr<LaunchedTask> QB_launch(const char* path);

/// Runs a shell command and waits for its end. Holds the system lock meanwhile, so no function of
/// Streams.h opens or closes a file until the command has ended. Always returns 0. Any thread.
int QB_system(const char* command);

}  // namespace sorvane
