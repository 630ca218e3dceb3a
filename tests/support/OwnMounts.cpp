#include "support/OwnMounts.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "support/TestFiles.h"

namespace sorvane::test {
namespace {

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
  return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

}  // namespace

void inOwnMounts(const std::function<void()>& test) {
  std::fflush(nullptr);
  const pid_t child = fork();
  ASSERT_NE(child, -1) << std::strerror(errno);
  if (child == 0) {
    EXPECT_TRUE(enterOwnMounts()) << "no mounts of its own: " << std::strerror(errno);
    if (!testing::Test::HasFailure()) {
      test();
    }
    std::fflush(nullptr);
    _exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
      << "the part with mounts of its own failed, see above; wait status " << status;
}

void mountSmallDisk(const std::filesystem::path& folder, std::size_t kibibytes) {
  const std::string size = "size=" + std::to_string(kibibytes) + "k";
  ASSERT_EQ(mount("tmpfs", folder.c_str(), "tmpfs", 0, size.c_str()), 0) << std::strerror(errno);
}

void setReadOnly(const std::filesystem::path& folder, bool readOnly) {
  const unsigned long flags = MS_REMOUNT | (readOnly ? MS_RDONLY : 0);
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
