// How another program takes the place of this one in its process, and goes on with what this one
// has kept in memory.
//
//   this program                       the program file that lies on the disk now
//
//   whyNoSuccessor      starts ---->   sorvinfo -understands VERSION
//                       <-- prints     "understands VERSION"
//   (stops serving, writes what is kept)
//   handOver            becomes --->   takeKept
//                                      (reads it, serves on)
//
// The descriptor of what is kept stands in a variable of the environment, which `takeKept` takes
// out. It is no setting.
#pragma once

#include <chrono>
#include <string>

#include "platform/HandOver.h"
#include "platform/KeptFile.h"

namespace sorvane {

/// How long the other program may take to answer.
inline constexpr std::chrono::seconds kAnswerLimit{5};

// ---- The signal that asks for an upgrade in place: SIGUSR2

/// Holds the signal back from now on, in this thread and in those that it starts. Call it before
/// other threads exist. The signal stays held back in the program that takes the place of this one,
/// so one that comes in between is not lost, and does not end the process.
void holdUpgradeSignalBack();
/// Waits until the signal has come. One thread.
void waitForUpgradeSignal();

// ---- Handing over

/// Asks the program file, which may have been replaced since this program was started, whether it
/// can go on with what this one keeps. Returns why not, in words; empty if it can. Waits for
/// `kAnswerLimit` at most.
[[nodiscard]] std::string whyNoSuccessor();

/// Makes the program file take the place of this program and hands over what was written, which it
/// finishes. Returns only on failure, with the reason in words; everything is as before then.
[[nodiscard]] std::string handOver(KeptFile& kept);

/// Finishes what was written, and lets the next program that takes the place of a process with this
/// table of descriptors inherit all that it speaks of, but for the file itself. Returns why that
/// failed, in words; empty if it did not.
[[nodiscard]] std::string leaveForSuccessor(KeptFile& kept);
/// Makes the program file take the place of this program, and hands over what another process has
/// left so. Returns only on failure, with the reason in words.
[[nodiscard]] std::string handOverFile(int memoryFile);

// ---- Taking over

/// Answers the question of `whyNoSuccessor` and ends the process. The settings must be usable, too.
[[noreturn]] void answerWhetherUnderstood(const char* version);

/// Returns the descriptor of the file that the program before has handed over; negative if there
/// was none before. Call it once, before other threads exist.
[[nodiscard]] int takeKept();

/// Starts this program once more in this process, without anything that was handed over.
[[noreturn]] void startAnew();

}  // namespace sorvane
