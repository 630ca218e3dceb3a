// Disks of a test's own: small, full or read-only, mounted where only the test sees them.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>

namespace sorvane::test {

/// Runs `test` in a child process whose mounts nobody else sees; they go with it. Its failures are
/// failures of the running test. Works for any user where the system has user namespaces.
void inOwnMounts(const std::function<void()>& test);

/// Inside `inOwnMounts`: mounts an empty disk of that size in memory on an existing folder.
void mountSmallDisk(const std::filesystem::path& folder, std::size_t kibibytes);
/// Makes that disk read-only, for root, too, or writable again.
void setReadOnly(const std::filesystem::path& folder, bool readOnly);

/// Fills the disk of the folder with the file "filler" until nothing more goes in; removing that
/// file makes the space free again.
void fillDisk(const std::filesystem::path& folder);

}  // namespace sorvane::test
