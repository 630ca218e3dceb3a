#include "service/Confinement.h"

#include <fcntl.h>
#include <grp.h>
#include <linux/capability.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <stdexcept>

#include "service/SystemCallFilters.h"
#include "service/SystemCallSets.h"
#include "support/Program.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

/// Ends the process when a step of its confinement did not work.
void require(bool done, const std::string& what) {
  if (!done) {
    perror(what.c_str());
    _exit(125);
  }
}

bool says(const std::string& directive, const std::string& value = "yes") {
  return unitOfNameServer().value("Service", directive) == value;
}

/// What confines a process to a mount, a capability or a system call; carried out in this order.
const std::vector<std::string> kCarriedOut = {"User",
                                              "Group",
                                              "UMask",
                                              "LimitNOFILE",
                                              "ReadWritePaths",
                                              "ProtectSystem",
                                              "ProtectHome",
                                              "PrivateTmp",
                                              "PrivateDevices",
                                              "PrivateMounts",
                                              "PrivateIPC",
                                              "PrivateUsers",
                                              "ProtectHostname",
                                              "ProtectControlGroups",
                                              "ProtectKernelTunables",
                                              "ProtectKernelLogs",
                                              "ProtectProc",
                                              "ProcSubset",
                                              "CapabilityBoundingSet",
                                              "AmbientCapabilities",
                                              "NoNewPrivileges",
                                              "RestrictAddressFamilies",
                                              "RestrictNamespaces",
                                              "RestrictRealtime",
                                              "RestrictSUIDSGID",
                                              "LockPersonality",
                                              "MemoryDenyWriteExecute",
                                              "SystemCallArchitectures",
                                              "SystemCallFilter",
                                              "SystemCallErrorNumber"};
/// What the service manager does for a service or with it, and what other directives entail: the
/// system calls for clocks and modules are not among those of the filter.
const std::vector<std::string> kManagersOwn = {
    "Type",          "NotifyAccess",         "ExecStart",   "ExecReload", "OOMPolicy",
    "StandardError", "WatchdogSec",          "Restart",     "RestartSec", "RemoveIPC",
    "KeyringMode",   "ProtectKernelModules", "ProtectClock"};

void makeFolder(const fs::path& path, mode_t mode) {
  fs::create_directories(path);
  require(chmod(path.c_str(), mode) == 0, path);
}

void mountOn(const fs::path& target, const char* kind, const char* options) {
  require(mount(kind, target.c_str(), kind, MS_NOSUID, options) == 0, target);
}

void bindOn(const fs::path& source, const fs::path& target) {
  require(mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0, target);
}

void setWritable(const fs::path& path, bool writable) {
  mount_attr change{};
  (writable ? change.attr_clr : change.attr_set) = MOUNT_ATTR_RDONLY;
  require(mount_setattr(AT_FDCWD, path.c_str(), AT_RECURSIVE, &change, sizeof change) == 0, path);
}

/// As PrivateDevices has it.
void makeDevices(const fs::path& folder) {
  mountOn(folder, "tmpfs", "mode=755");
  struct Device {
    const char* name;
    unsigned minor;
  };
  for (const auto& [name, minor] : {Device{"null", 3}, Device{"zero", 5}, Device{"full", 7},
                                    Device{"random", 8}, Device{"urandom", 9}}) {
    const fs::path path = folder / name;
    require(mknod(path.c_str(), S_IFCHR | 0666, makedev(1, minor)) == 0 &&
                chmod(path.c_str(), 0666) == 0,
            path);
  }
  fs::create_symlink("/proc/self/fd", folder / "fd");
  fs::create_symlink("/run/systemd/journal/dev-log", folder / "log");
}

/// A process that stays outside and lets the calling one have its user and root, and nobody else,
/// in a user namespace.
class IdentityWriter {
 public:
  IdentityWriter(uid_t user, gid_t group) {
    int ends[2];
    // This /proc is out of reach later.
    const int process = open("/proc/self", O_PATH | O_DIRECTORY | O_CLOEXEC);
    require(process >= 0 && pipe2(ends, O_CLOEXEC) == 0, "helper");
    helper_ = fork();
    require(helper_ >= 0, "helper");
    if (helper_ == 0) {
      close(ends[1]);
      char byte = 0;
      const bool done = read(ends[0], &byte, 1) == 1 && writeMap(process, "uid_map", user) &&
                        writeMap(process, "gid_map", group);
      _exit(done ? 0 : 1);
    }
    close(ends[0]);
    close(process);
    ask_ = ends[1];
  }
  void write() const {
    require(::write(ask_, "x", 1) == 1, "helper");
    int status = -1;
    require(waitpid(helper_, &status, 0) == helper_ && status == 0, "identities");
    close(ask_);
  }

 private:
  static bool writeMap(int process, const char* name, unsigned number) {
    const std::string own = std::to_string(number);
    const std::string map = "0 0 1\n" + own + " " + own + " 1\n";
    const int file = openat(process, name, O_WRONLY | O_CLOEXEC);
    return ::write(file, map.data(), map.size()) == static_cast<ssize_t>(map.size());
  }

  pid_t helper_ = -1;
  int ask_ = -1;
};

/// Makes the folder, which is a mount, the root folder; nothing outside can be reached then. A user
/// namespace cannot be made after chroot.
void enter(const fs::path& root) {
  require(chdir(root.c_str()) == 0 && syscall(SYS_pivot_root, ".", ".") == 0 &&
              umount2(".", MNT_DETACH) == 0 && chdir("/") == 0,
          "root folder");
}

void dropCapabilities() {
  for (int capability = 0; capability <= CAP_LAST_CAP; ++capability) {
    if (prctl(PR_CAPBSET_READ, capability, 0, 0, 0) == 1) {
      require(prctl(PR_CAPBSET_DROP, capability, 0, 0, 0) == 0, "bounding set");
    }
  }
}

void limitOpenFiles(rlim_t number) {
  rlimit limit{};
  require(getrlimit(RLIMIT_NOFILE, &limit) == 0, "limit");
  limit.rlim_max = std::min(limit.rlim_max, number);
  limit.rlim_cur = limit.rlim_max;
  require(setrlimit(RLIMIT_NOFILE, &limit) == 0, "limit");
}

/// The number in a field of the line of that user.
unsigned numberOf(const fs::path& passwords, const std::string& user, int field) {
  std::istringstream lines(readFile(passwords));
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(user + ":")) {
      std::istringstream fields(line);
      std::string text;
      for (int i = 0; i <= field; ++i) {
        std::getline(fields, text, ':');
      }
      return static_cast<unsigned>(std::stoul(text));
    }
  }
  throw std::runtime_error("there is no user " + user);
}

void runAsRoot(const char* program, std::vector<std::string> arguments) {
  const Outcome outcome = run(program, std::move(arguments));
  if (outcome.status != 0) {
    throw std::runtime_error(std::string(program) + ": " + outcome.errors);
  }
}

}  // namespace

ConfinedHost::ConfinedHost()
    : systemCalls_(allowedSystemCalls(unitOfNameServer().values("Service", "SystemCallFilter"))) {
  makeFolder(root_.path(), 0755);
  for (const char* const folder : {"/usr", "/proc", "/dev", "/sys", "/etc/sorvane", "/var/lib",
                                   "/var/log", "/run/dbus", "/run/systemd/journal", "/program"}) {
    makeFolder((*this)[folder], 0755);
  }
  for (const char* const folder : {"/tmp", "/var/tmp", "/run/lock"}) {
    makeFolder((*this)[folder], 01777);
  }
  writeFile((*this)["/run/dbus/system_bus_socket"], "");  // a place to mount on
  for (const char* const folder : {"/bin", "/sbin", "/lib", "/lib32", "/lib64", "/libx32"}) {
    if (fs::is_symlink(folder)) {
      fs::copy_symlink(folder, (*this)[folder]);
    }
  }
  for (const char* const file : {"/etc/passwd", "/etc/group", "/etc/hosts", "/etc/nsswitch.conf",
                                 "/etc/ld.so.cache", "/etc/os-release"}) {
    if (fs::exists(file)) {
      fs::copy_file(file, (*this)[file]);
    }
  }
  const std::string root = "--root=" + root_.path().string();
  runAsRoot("/usr/bin/systemd-sysusers", {root, packagingFile("sysusers.d/sorvane.conf")});
  runAsRoot("/usr/bin/systemd-tmpfiles",
            {root, "--create", packagingFile("tmpfiles.d/sorvane.conf")});
  const std::string user = unitOfNameServer().value("Service", "User");
  user_ = numberOf((*this)["/etc/passwd"], user, 2);
  group_ = numberOf((*this)["/etc/passwd"], user, 3);
}

std::vector<std::string> ConfinedHost::unknownDirectives() {
  std::vector<std::string> unknown;
  for (const auto& [directive, values] : unitOfNameServer().section("Service")) {
    const auto isIn = [&name = directive](const std::vector<std::string>& list) {
      return std::find(list.begin(), list.end(), name) != list.end();
    };
    if (!isIn(kCarriedOut) && !isIn(kManagersOwn)) {
      unknown.push_back(directive);
    }
  }
  return unknown;
}

void ConfinedHost::makeMounts() const {
  const fs::path& root = root_.path();
  bindOn(root, root);
  bindOn("/usr", root / "usr");
  bindOn("/sys", root / "sys");
  if (const char* const bus = getenv("DBUS_SYSTEM_BUS_ADDRESS")) {
    bindOn(std::string(bus).substr(std::string("unix:path=").size()),
           root / "run/dbus/system_bus_socket");
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
  }
  require(says("ProtectProc", "invisible") && says("ProcSubset", "pid"), "ProtectProc");
  mountOn(root / "proc", "proc", "hidepid=invisible,subset=pid");
  require(says("PrivateDevices") && says("ProtectKernelLogs"), "PrivateDevices");
  makeDevices(root / "dev");
  require(says("PrivateTmp"), "PrivateTmp");
  mountOn(root / "tmp", "tmpfs", "mode=1777");
  mountOn(root / "var/tmp", "tmpfs", "mode=1777");

  require(says("ProtectSystem", "strict") && says("ProtectControlGroups") &&
              says("ProtectKernelTunables"),
          "ProtectSystem");
  std::vector<fs::path> writable = {root / "tmp", root / "var/tmp"};
  for (const std::string& word : unitOfNameServer().words("Service", "ReadWritePaths")) {
    writable.push_back(root / word.substr(word.find('/') + 1));
    bindOn(writable.back(), writable.back());
  }
  setWritable(root, false);
  for (const fs::path& each : writable) {
    setWritable(each, true);
  }
  // There is no /home in this host.
  require(says("ProtectHome"), "ProtectHome");
}

void ConfinedHost::confine() const {
  const UnitFile& unit = unitOfNameServer();
  require(says("PrivateMounts") && says("PrivateIPC") && says("ProtectHostname"), "namespaces");
  require(unshare(CLONE_NEWNS | CLONE_NEWIPC | CLONE_NEWUTS) == 0, "namespaces");
  require(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "mounts");
  makeMounts();
  limitOpenFiles(std::stoul(unit.value("Service", "LimitNOFILE")));
  umask(static_cast<mode_t>(std::stoul(unit.value("Service", "UMask"), nullptr, 8)));

  require(says("PrivateUsers"), "PrivateUsers");
  const IdentityWriter identities(user_, group_);
  enter(root_.path());
  require(unshare(CLONE_NEWUSER) == 0, "user namespace");
  identities.write();
  require(says("CapabilityBoundingSet", "") && says("AmbientCapabilities", ""), "capabilities");
  dropCapabilities();
  require(setgroups(0, nullptr) == 0 && setresgid(group_, group_, group_) == 0 &&
              setresuid(user_, user_, user_) == 0,
          "user");
  require(prctl(PR_SET_PDEATHSIG, SIGKILL, 0, 0, 0) == 0, "end with the test");
  require(says("NoNewPrivileges") && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0, "privileges");

  allowAddressFamilies(unit.words("Service", "RestrictAddressFamilies"));
  require(says("RestrictNamespaces") && says("MemoryDenyWriteExecute") &&
              says("RestrictSUIDSGID") && says("RestrictRealtime") && says("LockPersonality") &&
              says("SystemCallArchitectures", "native"),
          "filters");
  refuseNamespaces();
  refuseWritableCode();
  refuseSetIdFiles();
  refuseRealtime();
  refuseOtherPersonalities();
  allowSystemCalls(systemCalls_);
}

}  // namespace sorvane::test
