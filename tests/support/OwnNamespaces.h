// Parts of a test that run where nothing outside is seen or reached: with mounts, a network or
// process numbers of their own.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>

#include "support/ForkedPart.h"

namespace sorvane::test {

/// As `inOwnProcess`, with mounts that nobody else sees; they go with the child. Works for any user
/// where the system has user namespaces.
void inOwnMounts(const std::function<void()>& body);

/// Why the functions below with a network of their own cannot work here, or "".
[[nodiscard]] std::string whyNoOwnNetwork();
/// As `inOwnProcess`, with mounts of its own and a network that has the loopback interface alone.
void inOwnNetwork(const std::function<void()>& body);
/// The same as `outputOfPart`.
[[nodiscard]] PartEnd outputInOwnNetwork(const std::function<void()>& body);

/// As `inOwnProcess`, as the first process of a PID namespace, with mounts of its own and /proc to
/// match: signals reach nothing outside. Needs root.
void inOwnPids(const std::function<void()>& body);

/// With mounts of its own: mounts an empty disk of that size in memory on an existing folder.
void mountSmallDisk(const std::filesystem::path& folder, std::size_t kibibytes);
/// Makes that disk read-only, for root, too, or writable again.
void setReadOnly(const std::filesystem::path& folder, bool readOnly);
/// Fills the disk of the folder with the file "filler" until nothing more goes in; removing that
/// file makes the space free again.
void fillDisk(const std::filesystem::path& folder);

}  // namespace sorvane::test
