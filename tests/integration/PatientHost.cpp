#include "integration/PatientHost.h"

#include <grp.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>

namespace sorvane::test {

namespace fs = std::filesystem;

std::vector<std::string> Examination::found() const {
  std::vector<std::string> ids;
  for (const auto& finding : report.at("findings")) {
    ids.push_back(finding.at("id"));
  }
  return ids;
}

std::string Examination::what(const std::string& id) const {
  for (const auto& finding : report.at("findings")) {
    if (finding.at("id") == id) {
      return finding.at("what");
    }
  }
  ADD_FAILURE() << "no finding " << id << " in " << report.dump(2);
  return "";
}

std::string Examination::seen(const std::string& check) const {
  for (const auto& each : report.at("checks")) {
    if (each.at("name") == check) {
      return each.at("seen");
    }
  }
  ADD_FAILURE() << "no check " << check << " in " << report.dump(2);
  return "";
}

std::vector<std::string> Examination::notLookedAt() const {
  std::vector<std::string> all;
  for (const auto& each : report.at("notLookedAt")) {
    all.push_back(each.at("check").get<std::string>() + ": " + each.at("what").get<std::string>());
  }
  return all;
}

PatientHost::PatientHost(const NetworkNamespace& network, std::function<void()> inside)
    : network_(network), inside_(std::move(inside)) {
  server.setting("HostName", "dbhost").setting("Address", "");
  std::error_code error;
  fs::create_hard_link(builtProgram("sorvctl"), server.tree() / "bin/sorvctl", error);
  if (error) {
    fs::copy_file(builtProgram("sorvctl"), server.tree() / "bin/sorvctl");
  }
  // Other users may look, too.
  fs::permissions(server.tree(), fs::perms::others_read | fs::perms::others_exec,
                  fs::perm_options::add);
  replaceSystemFile("/etc/nsswitch.conf", "hosts: files dns\n");
  replaceSystemFile("/etc/hosts", "127.0.0.1 localhost\n192.0.2.7 dbhost\n");
  replaceSystemFile("/etc/resolv.conf", "nameserver 127.0.0.1\n");  // where nobody listens
}

void PatientHost::replaceSystemFile(const std::string& path, const std::string& content) const {
  const fs::path own = files_ / fs::path(path).filename().string();
  writeFile(own, content);
  fs::permissions(own, fs::perms::group_read | fs::perms::others_read, fs::perm_options::add);
  fs::permissions(files_.path(), fs::perms::others_exec, fs::perm_options::add);
  // A link may lead to a folder that this host does not have.
  if (!fs::is_symlink(path)) {
    run("mount", {"--bind", own.string(), path});
  }
}

void PatientHost::namesAre(const std::string& hosts) const {
  writeFile(files_ / "hosts", "127.0.0.1 localhost\n" + hosts);
}

void PatientHost::askForNames(const std::string& address) const {
  writeFile(files_ / "resolv.conf", "nameserver " + address + "\noptions timeout:30 attempts:2\n");
}

void PatientHost::startServer(std::vector<std::string> words,
                              const std::function<void()>& beforeStart) {
  server.launch(std::move(words), [this, beforeStart] {
    inside_();
    if (beforeStart) {
      beforeStart();
    }
  });
  // It takes the lock while it serves already, and ends when it cannot.
  if (!waitUntil([this] { return sorvctl({"ping"}).status == 0; }) || !server.hasTakenLock()) {
    throw std::runtime_error("the name server does not answer: " + server.console());
  }
}

void PatientHost::changeSettings(const std::string& text) const {
  const fs::path file = server.tree() / "etc/sorvane.conf";
  const auto before = fs::last_write_time(file);
  writeFile(file, readFile(file) + text);
  fs::last_write_time(file, before);
}

void PatientHost::reservePort(int port) const {
  run("sh",
      {"-c", "echo " + std::to_string(port) + " > /proc/sys/net/ipv4/ip_local_reserved_ports"});
}

void PatientHost::run(const std::string& program, std::vector<std::string> words) const {
  static_cast<void>(network_.run(program, std::move(words)));
}

Outcome PatientHost::sorvctl(std::vector<std::string> words,
                             const std::function<void()>& beforeStart) const {
  Program program(server.tree() / "bin/sorvctl", std::move(words), {"", [this, beforeStart] {
                                                                      inside_();
                                                                      if (beforeStart) {
                                                                        beforeStart();
                                                                      }
                                                                    }});
  const int status = program.wait().value_or(-1);
  return {status, program.output(), program.errors()};
}

Examination PatientHost::examine(std::vector<std::string> words,
                                 const std::function<void()>& beforeStart) const {
  words.insert(words.begin(), {"--json", "doctor"});
  if (std::find(words.begin(), words.end(), "--timeout") == words.end()) {
    words.insert(words.end(), {"--timeout", "60"});
  }
  const Outcome outcome = sorvctl(std::move(words), beforeStart);
  EXPECT_EQ(outcome.errors, "");
  auto report = nlohmann::json::parse(outcome.output, nullptr, false);
  EXPECT_FALSE(report.is_discarded()) << outcome.output;
  return {outcome.status, std::move(report)};
}

void DoctorTest::SetUp() {
  if (const std::string why = whyNoOwnNetwork(); !why.empty()) {
    GTEST_SKIP() << why;
  }
  if (SORVANE_PORTABLE_HOST_NETWORK) {
    GTEST_SKIP() << "this build cannot look at other processes";
  }
  network = std::make_unique<NetworkNamespace>();
  connectToNothing(*network, "192.0.2.7/24");
  host = std::make_unique<PatientHost>(*network, [this] { network->enter(); });
}

std::function<void()> asUser(unsigned user) {
  return [user] {
    if (setgroups(0, nullptr) != 0 || setgid(user) != 0 || setuid(user) != 0) {
      _exit(125);
    }
  };
}

}  // namespace sorvane::test
