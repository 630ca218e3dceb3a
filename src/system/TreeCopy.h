// Copies of files, links and whole trees.
#pragma once

#include <filesystem>

namespace sorvane {

/// Copies what is at `source` to `destination`, at which nothing may exist, with permissions and
/// modification times. False when something cannot be copied; nothing that was copied stays then.
[[nodiscard]] bool copyTree(const std::filesystem::path& source,
                            const std::filesystem::path& destination);

}  // namespace sorvane
