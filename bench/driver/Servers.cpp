#include "driver/Servers.h"

#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

namespace sorvane::bench {
namespace {

namespace fs = std::filesystem;

constexpr std::chrono::seconds kStartLimit{20};

/// How many threads and connections a rival is given: one, and more than any row needs.
std::vector<std::string> rivalWords(Rival::Kind kind, const fs::path& program, int port,
                                    const fs::path& folder) {
  const std::string number = std::to_string(port);
  if (kind == Rival::Kind::redis) {
    return {program,     "--save",       "",      "--appendonly", "no",  "--port", number, "--bind",
            "127.0.0.1", "--maxclients", "11000", "--dir",        folder};
  }
  return {program, "-l", "127.0.0.1", "-p",    number, "-U",    "0",
          "-t",    "1",  "-c",        "11000", "-u",   "nobody"};
}

}  // namespace

TemporaryFolder::TemporaryFolder() {
  std::string pattern = fs::temp_directory_path() / "sorvinfo-bench.XXXXXX";
  if (::mkdtemp(pattern.data()) == nullptr) {
    throwSystemError("a temporary folder");
  }
  path_ = pattern;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

void waitUntilListening(int port, const Child& child, const fs::path& errors) {
  const auto limit = std::chrono::steady_clock::now() + kStartLimit;
  while (connectTo(port, kLoopback, true).descriptor() < 0) {
    if (!child.isRunning() || std::chrono::steady_clock::now() > limit) {
      std::ifstream in(errors);
      throw std::runtime_error("the server does not listen; it wrote: " +
                               std::string(std::istreambuf_iterator<char>(in), {}));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

NameServer::NameServer(const fs::path& program, const std::vector<int>& cores, int threads,
                       bool wait, AfterCrash afterCrash)
    : Server(freePort()) {
  const fs::path& tree = tree_.path();
  for (const char* const folder : {"bin", "etc", "Config", "Logs", "Users", "lock"}) {
    fs::create_directories(tree / folder);
  }
  const fs::path executable = install(program);
  std::ofstream(tree / "etc" / "sorvane.conf")
      << "BasePort = " << port() << ";\nBonjourDisabled = YES;\nLockDirectory = \""
      << (tree / "lock").string() << "\";\nHostName = \"benchhost\";\n"
      << "Address = \"192.0.2.10\";\nDynamicAddress = NO;\nThreads = " << threads
      << ";\nSurviveCrashes = " << (afterCrash == AfterCrash::goesOn ? "YES" : "NO") << ";\n";
  const fs::path errors = tree / "errors";
  started_ = std::chrono::steady_clock::now();
  run(std::make_unique<Child>(cores, std::vector<std::string>{executable, "noexit"}, errors));
  if (wait) {
    waitUntilListening(port(), child(), errors);
  }
}

// A link where the system allows one: a copy costs the page cache of a whole program.
fs::path NameServer::install(const fs::path& program) const {
  const fs::path executable = tree_.path() / "bin" / program.filename();
  std::error_code otherDisk;
  fs::create_hard_link(fs::canonical(program), executable, otherDisk);
  if (otherDisk) {
    fs::copy_file(program, executable);
  }
  return executable;
}

Echo::Echo(const std::vector<int>& cores, const std::vector<EchoStep>& steps)
    : Echo(cores, steps, listenOnFreePort()) {}

Echo::Echo(const std::vector<int>& cores, const std::vector<EchoStep>& steps, Socket listener)
    : Server(portOf(listener)) {
  run(std::make_unique<Child>(cores, [&] {
    // Only its own socket: what else the driver has open shall close when the driver closes it.
    const auto own = static_cast<unsigned>(listener.descriptor());
    ::close_range(3, own - 1, 0);
    ::close_range(own + 1, ~0U, 0);
    runEchoServer(listener, steps);
  }));
}

std::unique_ptr<Rival> Rival::start(Kind kind, const std::vector<int>& cores) {
  const fs::path program = installedProgram(kind == Kind::redis ? "redis-server" : "memcached");
  if (program.empty()) {
    return nullptr;
  }
  return std::unique_ptr<Rival>(new Rival(kind, program, cores));
}

Rival::Rival(Kind kind, const fs::path& program, const std::vector<int>& cores)
    : Server(freePort()) {
  const fs::path errors = folder_.path() / "errors";
  run(std::make_unique<Child>(cores, rivalWords(kind, program, port(), folder_.path()), errors));
  waitUntilListening(port(), child(), errors);
}

}  // namespace sorvane::bench
