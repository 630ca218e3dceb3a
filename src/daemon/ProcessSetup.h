// The steps that prepare the daemon's process, in the order in which a start takes them.
//
// `main` does this, all on the main thread before any other thread exists:
//
//   openClosedStandardStreams();                        // platform/StandardStreams.h
//   recordArguments(argc, argv);                        // Arguments.h
//   holdUpgradeSignalBack();                            // Succession.h
//   takeServiceManager();                               // ServiceManager.h
//   const StartMode mode = startMode(VN_parameter(1));  // CommandLine.h
//   if (mode == StartMode::stopAll) stopAllNameServers();
//   if (mode == StartMode::answers) answerWhetherUnderstood(VN_parameter(2));
//   kept = takeKept();                                  // what the program before has left
//   if (mode == StartMode::detached && !kept) detach();
//   ignoreSignalsOfFailedWrites();
//   watchOver(...);                                     // Watch.h; with SurviveCrashes alone: what
//                                                       // follows happens in a child
//   sorvkeyController controller;                       // opens the log: openLog, Log.h
//   controller.runConnection(mode == StartMode::verbose);  // or continueConnection, with `kept`
//   endProcess();                                       // only when serving has ended or could
//                                                       // not begin
//
// `runConnection` calls raiseResourceLimits before it sets up anything for serving. It calls
// ignoreHangupAndInterrupt as the last step before it serves.
#pragma once

namespace sorvane {

/// The shell command that stops the name servers of this host: every process of that name.
inline constexpr const char* kStopCommand = "/usr/bin/killall sorvinfo > /dev/null";

/// Runs kStopCommand in the system's shell, then ends this process with status 0, whether the
/// command worked or not. This process ignores SIGTERM from here on, because the command would
/// otherwise stop it, too.
[[noreturn]] void stopAllNameServers();

/// Moves the daemon into the background: ignores SIGHUP and SIGCHLD, then forks. The parent ends
/// with status 0; the child returns. When the fork fails, this process itself returns, and nothing
/// is reported. Session, working folder and descriptors stay as they are. Because SIGCHLD is
/// ignored, the system reaps the children that are started later.
void detach();

/// Ignores SIGXFSZ and SIGPIPE. A write that exceeds the limit of a file's size, or goes into a
/// pipe that nobody reads, then fails like any other write and does not end the process.
void ignoreSignalsOfFailedWrites();

/// Keeps the files and folders that this process creates from now on from everybody outside its
/// group, and lets nobody but its user write them.
void keepFilesFromOthers();

/// Raises the soft limit of open files to its hard limit, then the soft limit of processes to its
/// hard limit. Failures are ignored.
void raiseResourceLimits();

/// Ignores SIGHUP and SIGINT.
void ignoreHangupAndInterrupt();

}  // namespace sorvane
