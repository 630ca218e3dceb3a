// Path texts in the syntax of the running system.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace sorvane {

/// A path that is copied is cut after this many bytes. The terminator is not counted.
inline constexpr std::size_t kLongestCopiedPath = 1999;

/// Where a path is copied, and therefore cut: only on a system that needs another path syntax, or
/// on every system.
enum class PathCopy { whereChanged, always };

/// Returns the path to hand to the system. On NSWindowsNT this is a copy with a backslash for every
/// "/", cut after kLongestCopiedPath bytes. On other systems it is the path itself; with
/// PathCopy::always it is cut in the same way. Returns nothing when `path` is null, or when the
/// path to hand over is not UTF-8: such a path counts as one without a file.
[[nodiscard]] std::optional<std::filesystem::path> adaptedPath(const char* path, PathCopy copy);

}  // namespace sorvane
