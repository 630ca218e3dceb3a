#include "integration/Daemon.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <charconv>
#include <cstring>
#include <random>
#include <stdexcept>
#include <utility>

namespace sorvane::test {

namespace {

constexpr int kFirstBase = 21001;  // below the ports that systems hand out, above the usual ones
constexpr int kLastBase = 31999;

/// A name that one process of the system holds at a time; goes with the descriptor.
int claim(const std::string& name) {
  const int claimed = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path + 1, name.data(), name.size());  // abstract: no file
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  if (bind(claimed, reinterpret_cast<const sockaddr*>(&address), size) != 0) {
    close(claimed);
    return -1;
  }
  return claimed;
}

bool isFree(int port) {
  const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int yes = 1;
  setsockopt(probe, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  const bool free = bind(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  close(probe);
  return free;
}

}  // namespace

FreePorts::FreePorts() {
  std::random_device random;
  const int count = (kLastBase - kFirstBase) / 2 + 1;
  const int offset = static_cast<int>(random() % static_cast<unsigned>(count));
  for (int step = 0; step < count; ++step) {
    const int base = kFirstBase + 2 * ((offset + step) % count);
    claim_ = claim("sorvane-test-port-" + std::to_string(base));
    if (claim_ < 0) {
      continue;
    }
    if (isFree(base) && isFree(base - 1)) {
      base_ = base;
      return;
    }
    close(std::exchange(claim_, -1));
  }
  throw std::runtime_error("no free ports");
}

FreePorts::~FreePorts() {
  if (claim_ >= 0) {
    close(claim_);
  }
}

Daemon::Daemon()
    : settings_{{"BasePort", std::to_string(ports_.base())},
                {"LockDirectory", "\"" + (tree_ / "lock").string() + "\""},
                {"BonjourDisabled", "YES"},
                {"HostName", "testhost"},
                {"Address", "192.0.2.10"},
                {"DynamicAddress", "NO"},
                {"EthernetAddress", "\"02:00:00:00:00:01\""}} {
  for (const char* folder : {"bin", "etc", "Config", "Logs", "Users", "lock"}) {
    std::filesystem::create_directory(tree_ / folder);
  }
  // A symbolic link would lead the program to the settings of the place where it was built.
  std::error_code error;
  std::filesystem::create_hard_link(builtProgram("sorvinfo"), executable(), error);
  if (error) {
    std::filesystem::copy_file(builtProgram("sorvinfo"), executable());
  }
}

Daemon::~Daemon() {
  registered_.clear();
  for (const pid_t process : processes()) {
    ::kill(process, SIGKILL);
  }
  if (program_) {
    const std::string errors = console();
    EXPECT_EQ(errors.find("Sanitizer"), std::string::npos) << errors;
  }
  program_.reset();
  EXPECT_TRUE(waitUntil([this] { return processes().empty(); })) << "a name server is left";
}

Daemon& Daemon::setting(const std::string& key, const std::string& value) {
  if (value.empty()) {
    settings_.erase(key);
  } else {
    settings_[key] = value;
  }
  return *this;
}

void Daemon::writeSettings() const {
  std::string text;
  for (const auto& [key, value] : settings_) {
    text += key + " = " + value + ";\n";
  }
  writeFile(tree_ / "etc/sorvane.conf", text);
}

void Daemon::launch(std::vector<std::string> arguments, std::function<void()> beforeStart) {
  writeSettings();
  program_ = std::make_unique<Program>(executable(), std::move(arguments),
                                       Program::Options{{}, std::move(beforeStart)});
}

void Daemon::start(std::vector<std::string> arguments) {
  launch(std::move(arguments));
  if (!answers()) {
    throw std::runtime_error("the name server does not answer; its console:\n" + console());
  }
}

// The end of a connection tells those who wait for changes. So this one has ended when it returns.
bool Daemon::answers() {
  bool answered = false;
  const bool decided = waitUntil([&] {
    RawConnection probe(basePort());
    answered = probe.isConnected() && probe.ask(Message({{"ping", "ping"}})).has_value();
    if (answered) {
      probe.shutdownWriting();
      answered = probe.isClosedByPeer();
    }
    return answered || (!program_->isRunning() && processes().empty());
  });
  return decided && answered;
}

bool Daemon::hasTakenLock() const {
  const auto lock = tree() / "lock/sorvinfo.lock";
  return waitUntil([&] {
    return std::filesystem::exists(lock) && readFile(lock) == std::to_string(process()) + "\n";
  });
}

void Daemon::kill() {
  program_->signal(SIGKILL);
  EXPECT_TRUE(program_->wait()) << "the name server survived SIGKILL";
}

std::optional<int> Daemon::waitForExit(std::chrono::milliseconds limit) {
  return program_->wait(limit);
}

std::vector<pid_t> Daemon::processes() const {
  std::vector<pid_t> found;
  for (const auto& folder : std::filesystem::directory_iterator("/proc")) {
    const std::string name = folder.path().filename();
    pid_t process = 0;
    if (std::from_chars(name.data(), name.data() + name.size(), process).ec != std::errc()) {
      continue;
    }
    std::error_code gone;  // processes end while they are listed
    if (std::filesystem::read_symlink(folder.path() / "exe", gone) == executable()) {
      found.push_back(process);
    }
  }
  return found;
}

std::string Daemon::log() const {
  const auto file = tree_ / "Logs/infoserver_log";
  return std::filesystem::exists(file) ? readFile(file) : std::string();
}

bool Daemon::logs(const std::string& text) const {
  return comesToHold(tree_ / "Logs/infoserver_log", text);
}

std::unique_ptr<NetConnection> Daemon::connection() const {
  auto made = std::make_unique<NetConnection>();
  EXPECT_TRUE(made->connectToPort("127.0.0.1", basePort())) << made->lastError();
  return made;
}

std::optional<Message> Daemon::ask(const Message& request) const {
  const auto asking = connection();
  auto reply = asking->sendDictionary(request);
  EXPECT_EQ(asking->lastError(), "");
  return reply;
}

bool Daemon::registers(const std::string& name, const std::string& host, const std::string& type) {
  auto database = connection();
  const auto number = database->sendDictionary(
      {{"newPort", ""}, {"portName", name}, {"portHost", host}, {"portType", type}});
  if (!number || !number->contains("portNumber") ||
      !database->sendDictionary({{"acceptPort", ""}})) {
    return false;
  }
  registered_[name] = std::move(database);
  return true;
}

void Daemon::unregisters(const std::string& name) {
  registered_.erase(name);
  EXPECT_TRUE(waitUntil([&] { return !finds(name); })) << name << " is still registered";
}

bool Daemon::finds(const std::string& name) const {
  const auto reply =
      ask({{"findPort", name}, {"portHost", "localhost"}, {"portHostAddress", "localhost"}});
  return reply && reply->contains("portNumber");
}

}  // namespace sorvane::test
