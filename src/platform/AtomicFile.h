// Files that are replaced as a whole: a reader, and whoever comes after a crash, finds the old
// content or the new one, never a part of either.
#pragma once

#include <string>
#include <string_view>
#include <system_error>

namespace sorvane {

/// Makes `content` the whole content of the file at `path`, flushed to the disk.
///
/// It is written to a temporary file in the same folder, which then takes the file's name. What is
/// there already keeps its mode and, where this process may give files away, its owner and group; a
/// new file gets 0644 less the process's mask. A missing folder is created. A symbolic link stays:
/// the file that it names is replaced, and created when it is not there. What is neither a plain
/// file nor missing is refused.
///
/// Answers no error, or why it failed; the file is then as it was and no temporary file is left (as
/// far as the folder lets one be removed). The one exception: when the folder itself cannot be
/// flushed, the new content is in place and may still be lost with the machine's power.
/// Any thread; of several writers at a time, the last one's content stays. Waits for the disk.
[[nodiscard]] std::error_code replaceFile(const std::string& path, std::string_view content);

/// Removes the temporary files that writers of `path` left when they were ended in the middle of
/// `replaceFile`. Those of writers at work, in this process or another one, stay. What cannot be
/// removed stays without a word. Any thread.
void removeAbandonedTemporaries(const std::string& path);

}  // namespace sorvane
