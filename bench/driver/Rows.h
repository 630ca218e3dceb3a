// The rows of the table.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "driver/Setup.h"

namespace sorvane::bench {

struct RowMaker {
  std::string title;
  std::function<Setup()> make;  ///< starts the servers
};

[[nodiscard]] std::vector<RowMaker> allRows(const Options& options, const Cores& cores);

/// Raises the limit of open descriptors of this process and its children as far as the system
/// allows; returns the limit.
int raiseDescriptorLimit();

}  // namespace sorvane::bench
