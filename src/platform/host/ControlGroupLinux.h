// The limit on processor time of this process's control group. See cgroups(7).
#pragma once

#include <optional>
#include <string>

namespace sorvane {

/// Returns the processor time that the control group of this process and the groups above it allow,
/// in whole cores, rounded up: at least 1. Returns nothing if they set no limit or the system does
/// not tell. Reads the file cpu.max of version 2, and cpu.cfs_quota_us and cpu.cfs_period_us of
/// version 1; a system may have both. `root` is what stands before each path of the system's files:
/// "", but for tests.
[[nodiscard]] std::optional<int> coresOfControlGroup(const std::string& root);

}  // namespace sorvane
