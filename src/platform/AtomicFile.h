// Replacing a whole file. A reader finds either the old content or the new content, never a part of
// one, even after a crash.
#pragma once

#include <string>
#include <string_view>
#include <system_error>

namespace sorvane {

/// Makes `content` the whole content of the file at `path`, and flushes it to the disk.
///
/// The content is written to a temporary file in the same folder, which is then renamed to `path`.
/// An existing file keeps its mode. It also keeps its owner and group, if this process may set
/// them. A new file gets mode 0644 less the process's mask. A missing folder is created. If `path`
/// is a symbolic link, the link stays; the file that it names is replaced, or created if it is
/// missing. If `path` names anything but a plain file, the function fails.
///
/// Returns no error, or the reason of the failure. After a failure the file is unchanged, and the
/// temporary file is removed if the folder allows it. There is one exception: if the folder itself
/// cannot be flushed, an error is returned although the new content is in place. A power cut may
/// then still undo the change.
///
/// Any thread. If several writers replace a file at the same time, the content of the last one
/// stays. Waits for the disk.
[[nodiscard]] std::error_code replaceFile(const std::string& path, std::string_view content);

/// Removes the temporary files for `path` that were left by processes which ended in the middle of
/// `replaceFile`. Temporary files that are still being written stay, whichever process writes them.
/// Failures are ignored. Any thread.
void removeAbandonedTemporaries(const std::string& path);

}  // namespace sorvane
