#include "support/OwnNamespaces.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "support/TestFiles.h"

namespace sorvane::test {
namespace {

bool keepMountsToItself() {
  return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

bool enterOwnMounts() {
  const uid_t user = geteuid();
  const gid_t group = getegid();
  if (unshare(user == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) != 0) {
    return false;
  }
  if (user != 0) {
    writeFile("/proc/self/setgroups", "deny");
    writeFile("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    writeFile("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
  }
  return keepMountsToItself();
}

bool enterOwnNetwork() { return unshare(CLONE_NEWNET | CLONE_NEWNS) == 0 && keepMountsToItself(); }

std::function<void()> withOwnNetwork(const std::function<void()>& body) {
  return [&body] {
    ASSERT_TRUE(enterOwnNetwork()) << std::strerror(errno);
    shell("ip link set lo up");
    body();
  };
}

}  // namespace

void inOwnMounts(const std::function<void()>& body) {
  inOwnProcess([&] {
    ASSERT_TRUE(enterOwnMounts()) << "no mounts of its own: " << std::strerror(errno);
    body();
  });
}

std::string whyNoOwnNetwork() {
  ForkedPart attempt([](const ForkedPart& self) { self.tell(enterOwnNetwork() ? 0 : errno); });
  const std::optional<int> error = attempt.hear();
  return error == 0 ? ""
                    : std::string("network and mount namespaces cannot be made: ") +
                          std::strerror(error.value_or(ECHILD));
}

void inOwnNetwork(const std::function<void()>& body) { inOwnProcess(withOwnNetwork(body)); }

PartEnd outputInOwnNetwork(const std::function<void()>& body) {
  return outputOfPart(withOwnNetwork(body));
}

void inOwnPids(const std::function<void()>& body) {
  inOwnProcess([&] {
    ASSERT_EQ(unshare(CLONE_NEWPID | CLONE_NEWNS), 0) << std::strerror(errno);
    inOwnProcess([&] {
      ASSERT_EQ(getpid(), 1) << "signals would reach others";
      ASSERT_TRUE(keepMountsToItself());
      ASSERT_EQ(mount("proc", "/proc", "proc", 0, nullptr), 0);
      body();
    });
  });
}

void mountSmallDisk(const std::filesystem::path& folder, std::size_t kibibytes) {
  const std::string size = "size=" + std::to_string(kibibytes) + "k";
  ASSERT_EQ(mount("tmpfs", folder.c_str(), "tmpfs", 0, size.c_str()), 0) << std::strerror(errno);
}

void setReadOnly(const std::filesystem::path& folder, bool readOnly) {
  unsigned long flags = MS_REMOUNT;
  if (readOnly) {
    flags |= MS_RDONLY;
  }
  ASSERT_EQ(mount(nullptr, folder.c_str(), nullptr, flags, nullptr), 0) << std::strerror(errno);
}

void fillDisk(const std::filesystem::path& folder) {
  const int file = open((folder / "filler").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
  ASSERT_NE(file, -1) << std::strerror(errno);
  const std::string block(4096, 'x');
  ssize_t written = 0;
  do {
    written = write(file, block.data(), block.size());
  } while (written > 0);
  EXPECT_EQ(errno, ENOSPC);
  close(file);
}

}  // namespace sorvane::test
