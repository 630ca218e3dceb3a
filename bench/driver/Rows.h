// The rows of the table.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "driver/Comparison.h"

namespace sorvane::bench {

/// The cores of a run: the servers on one, the generator on another.
struct Cores {
  std::vector<int> server;
  std::vector<int> generator;
  std::vector<int> all;
  /// The first core for the servers and the second for the generator; raises where there is one.
  [[nodiscard]] static Cores choose();
};

/// A row and what has to live while it is measured.
struct Scene {
  std::vector<std::unique_ptr<Server>> servers;
  std::vector<Socket> connections;
  Row row;
};

struct RowMaker {
  std::string title;
  std::function<Scene()> make;  ///< starts the servers
};

[[nodiscard]] std::vector<RowMaker> allRows(const Options& options, const Cores& cores);

/// Opens connections to the name server that stay open, each with one ping answered.
[[nodiscard]] std::vector<Socket> openIdle(int port, int count);
/// Lets as many connections to this process and its children be open as the system allows; answers
/// how many that are.
int raiseDescriptorLimit();

}  // namespace sorvane::bench
