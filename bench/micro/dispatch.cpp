// The cost of each operation of the name server without its sockets, with 1, 1,000 and 100,000
// names or watchers. What must not grow with them can be read down a column.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "nameserver/sorvkeyController.h"
#include "platform/Console.h"
#include "platform/Settings.h"

namespace sorvane {
namespace {

/// A connection whose output is thrown away after each request, as a serving thread reuses it.
class Connection : public NetConnection {
 public:
  explicit Connection(sorvkeyController& server) : server_(server) {
    setReplyBuffer(&output_);
    server_.startCommunication(*this);
  }
  ~Connection() override { server_.endCommunication(*this); }

  std::optional<Reply> sends(const Message& request) {
    output_.clear();
    Turn turn;
    return server_.deliverWithoutWaiting(request, *this, turn);
  }
  [[nodiscard]] const ByteBuffer& output() const { return output_; }

 private:
  sorvkeyController& server_;
  ByteBuffer output_;
};

/// A server with that many names, each registered by a connection of its own, of which as many
/// watch.
class LoadedServer {
 public:
  LoadedServer(std::int64_t names, std::int64_t watchers) {
    for (std::int64_t index = 0; index < std::max(names, watchers); ++index) {
      connections_.push_back(std::make_unique<Connection>(server_));
      if (index < names) {
        registerOn(*connections_.back(), "database" + std::to_string(index));
      }
      if (index < watchers) {
        (void)connections_.back()->sends({{"action", "watchPortChanges"}});
      }
    }
  }

  static void registerOn(Connection& connection, const std::string& name) {
    (void)connection.sends(
        {{"newPort", ""}, {"portHost", "db.example.com"}, {"portName", name}, {"portType", "sql"}});
    (void)connection.sends({{"acceptPort", ""}});
  }

  sorvkeyController& server() { return server_; }

 private:
  static void prepare() {
    Settings settings;
    settings.installationDirectory = "/nonexistent";
    settings.address = "10.1.2.3";
    settings.dynamicAddress = false;
    Settings::replaceForTest(settings);
    setConsoleSink([](std::string_view) {});
  }

  const bool prepared_ = (prepare(), true);
  sorvkeyController server_;
  std::vector<std::unique_ptr<Connection>> connections_;
};

void findPort(benchmark::State& state) {
  LoadedServer loaded(state.range(0), 0);
  Connection client(loaded.server());
  // Names far apart in the map, in turn.
  std::vector<Message> requests;
  for (std::int64_t index = 0; index < 64; ++index) {
    const std::string name = "database" + std::to_string(index * 7919 % state.range(0));
    requests.push_back({{"findPort", name}, {"portHost", "client.example.com"}});
  }
  std::size_t next = 0;
  for (auto step : state) {
    (void)step;
    benchmark::DoNotOptimize(client.sends(requests[next++ % requests.size()]));
  }
  if (client.output().empty()) {
    state.SkipWithError("nothing was found");
  }
}

void findNothing(benchmark::State& state) {
  LoadedServer loaded(state.range(0), 0);
  Connection client(loaded.server());
  const Message request({{"findPort", "unknown"}, {"portHost", "client.example.com"}});
  for (auto step : state) {
    (void)step;
    benchmark::DoNotOptimize(client.sends(request));
  }
}

void ping(benchmark::State& state) {
  LoadedServer loaded(1, 0);
  Connection client(loaded.server());
  const Message request({{"ping", ""}});
  for (auto step : state) {
    (void)step;
    benchmark::DoNotOptimize(client.sends(request));
  }
}

void didPortsChange(benchmark::State& state) {
  LoadedServer loaded(0, state.range(0));
  Connection client(loaded.server());
  const Message request({{"action", "didPortsChange"}});
  for (auto step : state) {
    (void)step;
    benchmark::DoNotOptimize(client.sends(request));
  }
}

void registration(benchmark::State& state) {
  LoadedServer loaded(state.range(0), state.range(1));
  Connection client(loaded.server());
  const Message newPort({{"newPort", ""},
                         {"portHost", "db.example.com"},
                         {"portName", "measured"},
                         {"portType", "sql"}});
  const Message acceptPort({{"acceptPort", ""}});
  for (auto step : state) {
    (void)step;
    benchmark::DoNotOptimize(client.sends(newPort));
    benchmark::DoNotOptimize(client.sends(acceptPort));
  }
}

void connectRegisterClose(benchmark::State& state) {
  LoadedServer loaded(state.range(0), state.range(1));
  const Message newPort({{"newPort", ""},
                         {"portHost", "db.example.com"},
                         {"portName", "measured"},
                         {"portType", "sql"}});
  const Message acceptPort({{"acceptPort", ""}});
  for (auto step : state) {
    (void)step;
    Connection client(loaded.server());
    benchmark::DoNotOptimize(client.sends(newPort));
    benchmark::DoNotOptimize(client.sends(acceptPort));
  }
}

void connectClose(benchmark::State& state) {
  LoadedServer loaded(state.range(0), state.range(1));
  for (auto step : state) {
    (void)step;
    const Connection client(loaded.server());
    benchmark::DoNotOptimize(client.output().data());
  }
}

void marking(benchmark::State& state) {
  LoadedServer loaded(0, state.range(0));
  for (auto step : state) {
    (void)step;
    loaded.server().setWatchToDirty();
  }
}

void databaseStatesBuilt(benchmark::State& state) {
  LoadedServer loaded(state.range(0), 0);
  Connection client(loaded.server());
  const Message request({{"action", "databaseStates"}});
  for (auto step : state) {
    (void)step;
    loaded.server().setWatchToDirty();
    benchmark::DoNotOptimize(loaded.server().deliverCommunication(request, client));
    (void)client.sends({{"ping", ""}});  // throws the output away
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void databaseStatesKept(benchmark::State& state) {
  LoadedServer loaded(state.range(0), 0);
  Connection client(loaded.server());
  const Message request({{"action", "databaseStates"}});
  (void)loaded.server().deliverCommunication(request, client);
  for (auto step : state) {
    (void)step;
    benchmark::DoNotOptimize(client.sends(request));
  }
}

void names(benchmark::internal::Benchmark* benchmark) {
  for (const int count : {1, 1000, 100000}) {
    benchmark->Arg(count);
  }
}

// Names and watchers.
void both(benchmark::internal::Benchmark* benchmark) {
  for (const int count : {1, 1000, 100000}) {
    benchmark->Args({count, count});
  }
}

BENCHMARK(ping);
BENCHMARK(findPort)->Apply(names);
BENCHMARK(findNothing)->Apply(names);
BENCHMARK(didPortsChange)->Apply(names);
BENCHMARK(marking)->Apply(names);
BENCHMARK(registration)->Apply(both);
BENCHMARK(connectRegisterClose)->Apply(both);
BENCHMARK(connectClose)->Apply(both);
BENCHMARK(databaseStatesKept)->Apply(names);
BENCHMARK(databaseStatesBuilt)->Apply(names);

}  // namespace
}  // namespace sorvane
