// The log, which is one plain text file below the installation directory, and QB_syslog.
#pragma once

#include <limits.h>
#include <stdio.h>

#include <string>
#include <string_view>

namespace sorvane {

/// The path of the log, <installation directory>/Logs/infoserver_log. Set by openLog.
extern char nameserverLogFile[PATH_MAX];

/// The open log, or null when there is none. printToLog may replace it.
extern FILE* nameserverlog;

/// Opens the log to append to what earlier runs wrote. When that fails, opens it as a new file.
/// When both fail, writes one line to the console, and later entries are dropped. Called once,
/// before other threads exist.
void openLog();

/// Writes `text` unchanged and one line feed, and flushes: the entry is in the file when this
/// returns. Does nothing when there is no log or `text` is null. Errors are ignored. Any thread;
/// one entry is written at a time, and may wait for the disk.
///
/// The file may be moved, removed, replaced, or copied and truncated at any time: the entry goes to
/// the file that is at the path then. When an entry would make the file longer than the setting
/// MaxLogBytes, a last line and a line on the console say so. Entries are left out from then on,
/// until the file is shorter or another one; the next entry comes after one that tells their
/// number.
void printToLog(const char* text);

/// Writes `text` to the console, formatted by `formattedWithoutArguments`. The priority is ignored.
void QB_syslog(int priority, const char* text);

/// Returns what `format` prints without arguments: `%%` becomes one percent sign, any other
/// conversion stays as it is.
[[nodiscard]] std::string formattedWithoutArguments(std::string_view format);

}  // namespace sorvane
