// Files and folders by path.
//
// Paths are NUL-terminated UTF-8 with "/" between their parts, on every system. VN_createDirectory
// and VN_removeFile use at most the first 1999 bytes of a path; on a system with backslashes all
// functions do. A path that is null or not UTF-8 counts as a place where nothing exists and nothing
// can be created. No function takes a lock or reports why it failed. Any thread may call these
// functions; the current folder belongs to the whole process.
#pragma once

namespace sorvane {

/// Returns whether anything exists at the path, be it a folder or a plain file. Symbolic links are
/// followed.
[[nodiscard]] bool VN_directoryExists(const char* path);

/// Copies the file, link or whole tree at `source` to `destination`, with permissions and times. A
/// symbolic link is copied as a link. Returns false in these cases:
/// - Something exists at `destination` already. A link that leads nowhere counts, too.
/// - `destination` lies inside `source`.
/// - `source` is missing.
/// - Something in `source` is not a file, folder or link, or cannot be copied. The part that was
///   copied is then removed.
[[nodiscard]] bool VN_copyFile(const char* source, const char* destination);

/// The same as VN_copyFile.
[[nodiscard]] bool VN_copyDirectory(const char* source, const char* destination);

/// Makes the folder at the path the current folder of the process. Returns whether that worked.
[[nodiscard]] bool VN_changeDirectory(const char* path);

/// Creates one folder. Returns false when anything exists at the path already, or when the folder
/// above it is missing.
[[nodiscard]] bool VN_createDirectory(const char* path);

/// Removes the file, link or whole tree at the path, as VN_removeFile does. Always returns 1, even
/// when it removed nothing.
int VN_removeDirectory(const char* path);

/// Removes the file, link (not its target) or whole tree at the path. Returns false when nothing
/// exists at the path, or when something in the tree cannot be removed. Returns false and removes
/// nothing when the path ends in "." or "..", or names the root. A slash at the end changes nothing
/// for a link to a folder: the link is removed, not the folder.
[[nodiscard]] bool VN_removeFile(const char* path);

}  // namespace sorvane
