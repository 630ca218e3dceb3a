#include "driver/Footprint.h"

#include <fmt/format.h>

#include <thread>

#include "driver/Exchange.h"
#include "driver/ProcessFigures.h"
#include "driver/RivalRequests.h"
#include "driver/Table.h"

namespace sorvane::bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kWarmUp = 20;  // connections
constexpr double kIdleBytes = 200.0;
constexpr double kRegisteredBytes = 500.0;
constexpr double kStartMilliseconds = 20.0;
constexpr double kCommandStartMilliseconds = 10.0;
constexpr double kDoctorMilliseconds = 5000.0;
constexpr double kWakeUps = 1.0;  // a second

/// Opens a connection and brings it into the state whose memory is measured.
using Opener = std::function<Socket(int number)>;

/// What `count` connections of a server cost it, bytes for each.
double bytesForEach(const Server& server, int count, const Opener& open) {
  std::vector<Socket> sockets;
  for (int i = 0; i < kWarmUp; ++i) {
    sockets.push_back(open(i));
  }
  const std::uint64_t before = privateMemory(server.process());
  for (int i = 0; i < count; ++i) {
    sockets.push_back(open(kWarmUp + i));
  }
  const std::uint64_t after = privateMemory(server.process());
  return (static_cast<double>(after) - static_cast<double>(before)) / count;
}

Opener idleOpener(int port) {
  return [=](int) {
    std::vector<Socket> one = openIdle(port, 1);
    return std::move(one[0]);
  };
}

Opener registeringOpener(int port) {
  return [=](int number) { return openRegistered(port, fmt::format("database{:05}", number)); };
}

void printRivalMemory(Rival::Kind kind, int count, const Cores& cores) {
  const std::unique_ptr<Rival> rival = Rival::start(kind, cores.server);
  if (rival == nullptr) {
    return;
  }
  rival_requests::store(kind, rival->port());
  const Exchange get = rival_requests::get(kind, 1);
  const double bytes = bytesForEach(*rival, count, [&](int) {
    Socket socket = connectTo(rival->port());
    socket.sendAll(get.request);
    (void)socket.receive(get.reply.size());
    return socket;
  });
  fmt::print("  {:<21}{:>10} for each idle connection\n",
             kind == Rival::Kind::redis ? "redis" : "memcached", grouped(bytes));
}

/// Milliseconds from the start of a name server to its first reply.
double startOnce(const Options& options, const Cores& cores) {
  const NameServer server(options.daemon, cores.server, 1, false);
  const Clock::time_point limit = server.started() + std::chrono::seconds(20);
  Socket socket;
  while (socket.descriptor() < 0 && Clock::now() < limit) {
    socket = connectTo(server.port(), kLoopback, true);
  }
  socket.sendAll(sorvane_requests::ping());
  (void)socket.receiveFrame();
  return std::chrono::duration<double, std::milli>(Clock::now() - server.started()).count();
}

/// How long a program takes that is kept to those cores; milliseconds.
double timeOf(const std::vector<std::string>& words, const Cores& cores) {
  const TemporaryFolder folder;
  const Clock::time_point begin = Clock::now();
  Child child(cores.generator, words, folder.path() / "errors");
  child.waitForItsEnd();
  return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

Spread milliseconds(int times, const std::function<double()>& measure) {
  std::vector<double> measured;
  for (int i = 0; i < times; ++i) {
    measured.push_back(measure());
  }
  return Spread::of(std::move(measured));
}

std::string text(const Spread& spread) {
  return fmt::format("{:.1f} ms ({:.1f}..{:.1f})", spread.median, spread.least, spread.greatest);
}

}  // namespace

void printMemory(const Options& options, const Cores& cores) {
  const int count = options.idleConnections;
  fmt::print("\nmemory of the server's own for each of {} connections, bytes\n", grouped(count));
  const NameServer idleServer(options.daemon, cores.server, 1);
  const double idle = bytesForEach(idleServer, count, idleOpener(idleServer.port()));
  const NameServer server(options.daemon, cores.server, 1);
  const double registered = bytesForEach(server, count, registeringOpener(server.port()));
  fmt::print("  {:<21}{:>10} for each idle connection\n", "sorvinfo", grouped(idle));
  fmt::print("  {:<21}{:>10} for each registered connection\n", "sorvinfo", grouped(registered));
  if (options.rivals) {
    printRivalMemory(Rival::Kind::redis, count, cores);
    printRivalMemory(Rival::Kind::memcached, count, cores);
  }
  printAim(fmt::format("an idle connection, at most {:.0f} bytes", kIdleBytes), grouped(idle),
           idle <= kIdleBytes);
  printAim(fmt::format("a registered connection, at most {:.0f} bytes", kRegisteredBytes),
           grouped(registered), registered <= kRegisteredBytes);
}

void printStart(const Options& options, const Cores& cores) {
  const Spread spread = milliseconds(options.starts, [&] { return startOnce(options, cores); });
  fmt::print("\nstart of the process to its first answer\n  {:<21}{}\n", "sorvinfo", text(spread));
  printAim(fmt::format("under {:.0f} ms", kStartMilliseconds), text(spread),
           spread.median < kStartMilliseconds);
}

void printCommands(const Options& options, const Cores& cores) {
  const NameServer server(options.daemon, cores.server, 0);
  const std::string program = server.install(options.sorvctl);
  const auto take = [&](const std::vector<std::string>& words) {
    return milliseconds(options.starts, [&] { return timeOf(words, cores); });
  };
  const Spread start = take({program, "--version"});
  const Spread ping = take({program, "ping"});
  const Spread doctor = take({program, "doctor"});
  fmt::print("\ncommands of sorvctl, from their start to their end\n");
  fmt::print("  {:<21}{}\n", "--version", text(start));
  fmt::print("  {:<21}{}\n", "ping", text(ping));
  fmt::print("  {:<21}{}\n", "doctor", text(doctor));
  printAim(fmt::format("the start, under {:.0f} ms", kCommandStartMilliseconds), text(start),
           start.median < kCommandStartMilliseconds);
  printAim(fmt::format("doctor, under {:.0f} ms", kDoctorMilliseconds), text(doctor),
           doctor.greatest < kDoctorMilliseconds);
}

void printRest(const Options& options, const Cores& cores) {
  const NameServer server(options.daemon, cores.server, 0);
  const std::vector<Socket> idle = openIdle(server.port(), kWarmUp);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // what follows the start is over
  const std::uint64_t switches = contextSwitches(server.process());
  const std::uint64_t cpu = cpuTime(server.process());
  std::this_thread::sleep_for(options.idleTime);
  const double seconds = std::chrono::duration<double>(options.idleTime).count();
  const double wakeUps =
      static_cast<double>(contextSwitches(server.process()) - switches) / seconds;
  const double used = static_cast<double>(cpuTime(server.process()) - cpu) / seconds;
  fmt::print(
      "\nidle name server, {:.1f} s long\n  {:<21}{:.2f} wake-ups a second, {} ns of CPU a "
      "second\n",
      seconds, "sorvinfo", wakeUps, grouped(used));
  printAim(fmt::format("at most {:.0f} wake-up a second", kWakeUps), fmt::format("{:.2f}", wakeUps),
           wakeUps <= kWakeUps);
}

}  // namespace sorvane::bench
