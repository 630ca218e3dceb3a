// The rows of the table.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "driver/Scene.h"

namespace sorvane::bench {

struct RowMaker {
  std::string title;
  std::function<Scene()> make;  ///< starts the servers
};

[[nodiscard]] std::vector<RowMaker> allRows(const Options& options, const Cores& cores);

/// Lets as many connections to this process and its children be open as the system allows; answers
/// how many that are.
int raiseDescriptorLimit();

}  // namespace sorvane::bench
