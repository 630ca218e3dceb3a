// Files and folders by path.
//
// Paths are NUL-terminated UTF-8 with "/" between their parts, whatever the system.
// VN_createDirectory and VN_removeFile use at most the first 1999 bytes of theirs; on a system with
// backslashes all functions do. A path that is null or no UTF-8 is like one at which nothing can
// be. No function takes a lock or reports why it failed. Any thread; the current folder belongs to
// the whole process.
#pragma once

namespace sorvane {

/// True when anything exists at the path, a plain file too. Symbolic links are followed.
[[nodiscard]] bool VN_directoryExists(const char* path);

/// Copies the file, link or whole tree at `source` to `destination`, with permissions and times; a
/// symbolic link is copied as a link. False when anything exists at `destination` already (a link
/// that leads nowhere too), when it lies inside `source`, when `source` is missing, or when
/// something in it is neither file, folder nor link or cannot be copied; what had been copied is
/// then taken away.
[[nodiscard]] bool VN_copyFile(const char* source, const char* destination);

/// The same as VN_copyFile.
[[nodiscard]] bool VN_copyDirectory(const char* source, const char* destination);

/// Makes the folder at the path the current one of the process.
[[nodiscard]] bool VN_changeDirectory(const char* path);

/// Creates one folder. False when anything exists there already, or the folder above it is missing.
[[nodiscard]] bool VN_createDirectory(const char* path);

/// Removes what is at the path, as VN_removeFile does. Always 1, whatever happened.
int VN_removeDirectory(const char* path);

/// Removes the file, link (not what it leads to) or whole tree at the path. False when nothing is
/// there, when something in it cannot be removed, and for a path that ends in "." or ".." or names
/// the root, which are never removed.
[[nodiscard]] bool VN_removeFile(const char* path);

}  // namespace sorvane
