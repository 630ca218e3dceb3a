#include "integration/NetworkNamespace.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace sorvane::test {
namespace {

constexpr int kNamespaces = CLONE_NEWNET | CLONE_NEWNS;

// Answers 0, or the errno of what failed.
int separate() {
  const bool done = unshare(kNamespaces) == 0 &&
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

std::string NetworkNamespace::obstacle() {
  const pid_t child = fork();
  if (child == 0) {
    _exit(unshare(kNamespaces) == 0 ? 0 : errno);
  }
  int status = 0;
  waitpid(child, &status, 0);
  const int error = WIFEXITED(status) ? WEXITSTATUS(status) : ECHILD;
  return error == 0
             ? ""
             : std::string("network and mount namespaces cannot be made: ") + std::strerror(error);
}

NetworkNamespace::NetworkNamespace() {
  int ready[2];
  if (pipe2(ready, O_CLOEXEC) != 0 || (holder_ = fork()) < 0) {
    throw std::runtime_error("no process for a network namespace");
  }
  if (holder_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int error = separate();
    if (write(ready[1], &error, sizeof error) == sizeof error) {
      close(ready[0]);
      close(ready[1]);
      while (true) {
        pause();
      }
    }
    _exit(1);
  }
  int error = ECHILD;
  close(ready[1]);
  const ssize_t received = read(ready[0], &error, sizeof error);
  close(ready[0]);
  if (received != sizeof error || error != 0) {
    throw std::runtime_error(std::string("no network namespace: ") + std::strerror(error));
  }
  run("ip", {"link", "set", "lo", "up"});
}

NetworkNamespace::~NetworkNamespace() {
  kill(holder_, SIGKILL);
  waitpid(holder_, nullptr, 0);
}

void NetworkNamespace::enter() const {
  // Alone with its folders: a thread of a sanitizer's runtime would keep it out of the other
  // mounts.
  if (unshare(CLONE_FS) != 0 || !enterOne(holder_, "net", CLONE_NEWNET) ||
      !enterOne(holder_, "mnt", CLONE_NEWNS)) {
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
