// Copies of files, links and whole trees.
#pragma once

#include <filesystem>

namespace sorvane {

/// Copies the file, link or whole tree at `source` to `destination`, with permissions and
/// modification times. Nothing may exist at `destination`. Returns false when something cannot be
/// copied; the part that was copied is then removed.
[[nodiscard]] bool copyTree(const std::filesystem::path& source,
                            const std::filesystem::path& destination);

}  // namespace sorvane
