// The build whose programs are tested.
#pragma once

#include <filesystem>
#include <string>

namespace sorvane::test {

/// The folder of the build whose programs the tests run: that of the tests themselves, unless
/// SORVANE_TESTED_BUILD in the environment names another. So tests that only ask programs, from
/// outside, are built once for all builds.
[[nodiscard]] std::filesystem::path testedBuild();

/// The sanitizers of its programs, separated by commas; empty when they have none. Raises
/// std::runtime_error when the folder is no build.
[[nodiscard]] const std::string& testedSanitizers();

[[nodiscard]] inline bool areTestedWithoutSanitizers() { return testedSanitizers().empty(); }

}  // namespace sorvane::test
