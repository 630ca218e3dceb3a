// How the daemon's process is prepared, in the order in which a start takes these steps.
//
// The entry point, all on the main thread before any other exists:
//
//   recordArguments(argc, argv);                        // Arguments.h
//   const StartMode mode = startMode(VN_parameter(1));  // CommandLine.h
//   if (mode == StartMode::stopAll) stopAllNameServers();
//   if (mode == StartMode::detached) detach();
//   ignoreSignalsOfFailedWrites();
//   sorvkeyController controller;                       // opens the log: openLog, Log.h
//   controller.runConnection(mode == StartMode::verbose);
//   endProcess();                                       // only when serving ended, or could not
//                                                       // begin
//
// `runConnection` calls raiseResourceLimits before it sets up anything for serving, and
// ignoreHangupAndInterrupt as the last step before it serves.
#pragma once

namespace sorvane {

/// What stops the name servers of this host, every process of that name.
inline constexpr const char* kStopCommand = "/usr/bin/killall sorvinfo > /dev/null";

/// Runs kStopCommand in the system's shell and ends this process with status 0, whatever came of
/// it. This process ignores SIGTERM from here on, as the command would otherwise stop it too.
[[noreturn]] void stopAllNameServers();

/// Goes on in the background: ignores SIGHUP and SIGCHLD and forks; the parent ends with status 0,
/// the child returns. Where forking fails, this process returns itself, and nothing is reported.
/// Session, working folder and descriptors stay. As SIGCHLD is ignored, the system reaps the
/// children that are started later.
void detach();

/// Makes a write that goes beyond the limit of a file's size, or into a pipe that nobody reads,
/// fail like any other instead of ending the process: ignores SIGXFSZ and SIGPIPE.
void ignoreSignalsOfFailedWrites();

/// Raises the soft limits of open files and then of processes to the hard ones. Failures are
/// ignored.
void raiseResourceLimits();

/// Ignores SIGHUP and SIGINT.
void ignoreHangupAndInterrupt();

}  // namespace sorvane
