// The checks of the doctor. Each looks at one subject, in a file of its own.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "sorvctl/doctor/Environment.h"
#include "sorvctl/doctor/Findings.h"

namespace sorvctl::doctor {

/// Each returns what it found. It may wait, until a little before the deadline of the environment
/// at most. Each runs on a thread of its own, beside the others.
[[nodiscard]] Report checkSettings(const Environment& environment);
[[nodiscard]] Report checkLock(const Environment& environment);
[[nodiscard]] Report checkPort(const Environment& environment);
[[nodiscard]] Report checkAddresses(const Environment& environment);
[[nodiscard]] Report checkHostName(const Environment& environment);
[[nodiscard]] Report checkHostFile(const Environment& environment);
[[nodiscard]] Report checkBonjour(const Environment& environment);
[[nodiscard]] Report checkConnections(const Environment& environment);
[[nodiscard]] Report checkNames(const Environment& environment);
[[nodiscard]] Report checkFiles(const Environment& environment);
[[nodiscard]] Report checkClock(const Environment& environment);
[[nodiscard]] Report checkVersion(const Environment& environment);

/// A row of the table of checks.
struct Check {
  const char* name;
  Report (*look)(const Environment& environment);
  bool needsSettings = true;  ///< means nothing without settings that can be used
};

/// All checks, in the order in which they are told.
[[nodiscard]] const std::vector<Check>& allChecks();

/// What a check reported.
struct Result {
  std::string check;
  Report report;
};

/// Runs the checks at the same time. One that has not ended at the deadline counts as something
/// that could not be looked at, and so does one that throws. What follows from another finding is
/// left out. The results are in the order of the table.
[[nodiscard]] std::vector<Result> runChecks(std::shared_ptr<const Environment> environment,
                                            const std::vector<Check>& checks = allChecks());

}  // namespace sorvctl::doctor
