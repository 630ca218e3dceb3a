#include "integration/NetworkNamespace.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace sorvane::test {
namespace {

// Returns 0, or the errno of what failed.
int separate() {
  const bool done = unshare(CLONE_NEWNET | CLONE_NEWNS) == 0 &&
                    mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                    mount("tmpfs", "/run", "tmpfs", 0, "mode=755") == 0 &&
                    mkdir("/run/lock", 0777) == 0;
  return done ? 0 : errno;
}

bool enterOne(pid_t holder, const char* kind, int type) {
  const std::string path = "/proc/" + std::to_string(holder) + "/ns/" + kind;
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  const bool done = descriptor >= 0 && setns(descriptor, type) == 0;
  close(descriptor);
  return done;
}

}  // namespace

NetworkNamespace::NetworkNamespace()
    : holder_([](const ForkedPart& self) {
        self.tell(separate());
        for (;;) {
          pause();
        }
      }) {
  const int error = holder_.hear().value_or(ECHILD);
  if (error != 0) {
    throw std::runtime_error(std::string("no network namespace: ") + std::strerror(error));
  }
  run("ip", {"link", "set", "lo", "up"});
}

void NetworkNamespace::enter() const {
  // Alone with its folders: a thread of a sanitizer's runtime would keep it out of the other
  // mounts.
  if (unshare(CLONE_FS) != 0 || !enterOne(process(), "net", CLONE_NEWNET) ||
      !enterOne(process(), "mnt", CLONE_NEWNS)) {
    _exit(125);
  }
}

Outcome NetworkNamespace::run(const std::string& program,
                              std::vector<std::string> arguments) const {
  Program inside(systemProgram(program), std::move(arguments), {"", [this] { enter(); }});
  const int status = inside.wait().value_or(-1);
  if (status != 0) {
    throw std::runtime_error(program + " failed with status " + std::to_string(status) + ": " +
                             inside.errors());
  }
  return {status, inside.output(), inside.errors()};
}

void onNetworkOf(const NetworkNamespace& host, const std::function<void()>& work) {
  std::thread([&] {
    const std::string path = "/proc/" + std::to_string(host.process()) + "/ns/net";
    const int network = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(setns(network, CLONE_NEWNET), 0);
    close(network);
    work();
  }).join();
}

void connectByCable(const NetworkNamespace& one, const std::string& addressOfOne,
                    const NetworkNamespace& other, const std::string& addressOfOther) {
  // Both ends are made inside, so that the machine's own network never sees them.
  one.run("ip", {"link", "add", "eth0", "type", "veth", "peer", "name", "eth0", "netns",
                 std::to_string(other.process())});
  one.run("ip", {"address", "add", addressOfOne, "dev", "eth0"});
  other.run("ip", {"address", "add", addressOfOther, "dev", "eth0"});
  one.run("ip", {"link", "set", "eth0", "up"});
  other.run("ip", {"link", "set", "eth0", "up"});
}

void connectToNothing(const NetworkNamespace& host, const std::string& address) {
  host.run("ip", {"link", "add", "eth0", "type", "veth", "peer", "name", "nowhere"});
  host.run("ip", {"address", "add", address, "dev", "eth0"});
  host.run("ip", {"link", "set", "nowhere", "up"});
  host.run("ip", {"link", "set", "eth0", "up"});
}

std::filesystem::path systemProgram(const std::string& name) {
  for (const char* const folder : {"/usr/sbin", "/usr/bin", "/sbin", "/bin"}) {
    const std::filesystem::path path = std::filesystem::path(folder) / name;
    if (std::filesystem::exists(path)) {
      return path;
    }
  }
  throw std::runtime_error(name + " is not installed");
}

}  // namespace sorvane::test
