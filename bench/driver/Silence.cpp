#include "driver/Silence.h"

#include <fmt/format.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "driver/Exchange.h"
#include "driver/Load.h"
#include "driver/Table.h"

namespace sorvane::bench {
namespace {

constexpr int kFewConnections = 1000;
constexpr double kFewMilliseconds = 50.0;
constexpr double kManyMilliseconds = 300.0;
constexpr std::chrono::milliseconds kBefore{100};  // of load, until the upgrade is asked for
constexpr std::chrono::milliseconds kLoad{500};

/// The lookups of connections that stay open, some at once on each.
class Lookups final : public SteadyLoad {
 public:
  explicit Lookups(int port)
      : SteadyLoad(port, {pipelined(recordExchange(port, sorvane_requests::findPort("name0")), 4)},
                   kManyConnections) {}
};

std::string upgradesOf(const Socket& tool) {
  tool.sendAll(sorvane_requests::continuity());
  return tool.receiveFrame();
}

/// The slowest lookup of each upgrade, milliseconds.
Spread silences(const Options& options, const Cores& cores, int connections) {
  const NameServer server(options.daemon, cores.server, 1);
  std::vector<Socket> registered;
  for (int i = 0; i < connections; ++i) {
    registered.push_back(connectTo(server.port()));
    registered.back().sendAll(sorvane_requests::reconnectPort(fmt::format("name{}", i)));
    (void)registered.back().receiveFrame();
  }
  const Socket tool = connectTo(server.port());
  Lookups lookups(server.port());
  std::vector<double> milliseconds;
  for (int i = 0; i < options.upgrades; ++i) {
    const std::string before = upgradesOf(tool);
    std::thread upgrade([&] {
      std::this_thread::sleep_for(kBefore);
      ::kill(server.process(), SIGUSR2);
    });
    const LoadResult result = lookups.run(kLoad);
    upgrade.join();
    if (upgradesOf(tool) == before) {
      throw std::runtime_error("the name server was not upgraded");
    }
    milliseconds.push_back(static_cast<double>(result.latency.quantile(1.0)) / 1000.0);
  }
  return Spread::of(std::move(milliseconds));
}

}  // namespace

void printSilence(const Options& options, const Cores& cores) {
  fmt::print("\nsilence of an {}: the slowest of the lookups meanwhile, milliseconds\n", kUpgrade);
  const auto print = [&](int connections, double aim) {
    const Spread spread = silences(options, cores, connections);
    fmt::print("  {:>7} connections, {} upgrades: {:.1f} ({:.1f}..{:.1f})\n", grouped(connections),
               options.upgrades, spread.median, spread.least, spread.greatest);
    printAim(fmt::format("at most {:.0f} ms", aim), fmt::format("{:.1f}", spread.greatest),
             spread.greatest <= aim);
  };
  print(std::min(kFewConnections, options.idleConnections), kFewMilliseconds);
  print(options.idleConnections, kManyMilliseconds);
}

}  // namespace sorvane::bench
