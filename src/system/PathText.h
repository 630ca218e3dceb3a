// Path texts in the syntax of the running system.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace sorvane {

/// The most bytes of a path that are copied into the private buffer, its terminator not counted.
inline constexpr std::size_t kLongestCopiedPath = 1999;

/// Whether a path function copies its path into the private buffer on every system or only where
/// the syntax is changed.
enum class PathCopy { whereChanged, always };

/// The path to hand to the system. On NSWindowsNT it is a copy, cut after kLongestCopiedPath bytes,
/// with a backslash for every "/"; elsewhere it is the path as it is, with PathCopy::always cut the
/// same way. Nothing when `path` is null or, cut or not, no UTF-8: no file answers to that.
[[nodiscard]] std::optional<std::filesystem::path> adaptedPath(const char* path, PathCopy copy);

}  // namespace sorvane
