// The log, one plain text file below the installation directory, and QB_syslog.
#pragma once

#include <limits.h>
#include <stdio.h>

#include <string>
#include <string_view>

namespace sorvane {

/// The log's path, set by openLog: <installation directory>/Logs/infoserver_log.
extern char nameserverLogFile[PATH_MAX];

/// The open log, or null when there is none. Set once by openLog and never closed.
extern FILE* nameserverlog;

/// Opens the log, to append to what earlier runs wrote or else as a new file. When neither works,
/// the console says so in one line and later entries are dropped. Called once, before other threads
/// exist.
void openLog();

/// Writes `text` and one line feed as they stand, and flushes: the entry is in the file when this
/// returns. Does nothing without a log or a text; errors are ignored. Any thread, no lock.
void printToLog(const char* text);

/// Writes `text` to the console, read as a format without arguments. The priority means nothing.
void QB_syslog(int priority, const char* text);

/// `format` printed without arguments: `%%` is one percent sign, any other conversion stays as it
/// stands.
[[nodiscard]] std::string formattedWithoutArguments(std::string_view format);

}  // namespace sorvane
