#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <thread>

#include "platform/host/ControlGroupLinux.h"
#include "platform/host/UsableCores.h"
#include "support/ForkedPart.h"
#include "support/TestFiles.h"

namespace sorvane::test {
namespace {

TEST(UsableCores, AreAtLeastOneAndNoMoreThanTheMachineHas) {
  EXPECT_GE(usableCores(), 1);
  EXPECT_LE(usableCores(), sysconf(_SC_NPROCESSORS_CONF));
}

TEST(UsableCores, AreThoseOfTheAffinity) {
  if (SORVANE_PORTABLE_HOST_NETWORK) {
    GTEST_SKIP() << "no portable call tells of the affinity";
  }
  inOwnProcess([] {
    cpu_set_t allowed;
    ASSERT_EQ(sched_getaffinity(0, sizeof allowed, &allowed), 0);
    int first = 0;
    while (!CPU_ISSET(first, &allowed)) {
      ++first;
    }
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(first, &one);
    ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
    EXPECT_EQ(usableCores(), 1);
  });
}

/// The files of a system that tell of control groups.
class ControlGroup : public ::testing::Test {
 protected:
  void has(const std::string& file, const std::string& content) {
    writeFile(root_.path() / file, content);
  }
  void mounts(const std::string& lines) {
    has("proc/self/mountinfo", "24 1 8:1 / / rw,relatime shared:1 - ext4 /dev/sda1 rw\n" + lines +
                                   "30 24 0:22 / /run rw - tmpfs tmpfs rw\n");
  }
  void mountsVersionTwo(const std::string& root = "/") {
    mounts("31 24 0:26 " + root + " /sys/fs/cgroup rw,nosuid shared:9 - cgroup2 cgroup2 rw\n");
  }
  void belongsTo(const std::string& lines) { has("proc/self/cgroup", lines); }
  [[nodiscard]] std::optional<int> cores() const {
    return coresOfControlGroup(root_.path().string());
  }

  const TemporaryFolder root_;
};

TEST_F(ControlGroup, OfASystemWithoutAnyAllowsWhatThereIs) { EXPECT_EQ(cores(), std::nullopt); }

TEST_F(ControlGroup, OfVersionTwoAllowsItsQuotaRoundedUp) {
  mountsVersionTwo();
  belongsTo("0::/system.slice/sorvinfo.service\n");
  const std::string file = "sys/fs/cgroup/system.slice/sorvinfo.service/cpu.max";
  const struct {
    const char* limit;
    std::optional<int> cores;
  } rows[] = {
      {"max 100000\n", std::nullopt}, {"100000 100000\n", 1},         {"100001 100000\n", 2},
      {"150000 100000\n", 2},         {"1000 100000\n", 1},           {"400000 100000\n", 4},
      {"50000 20000\n", 3},           {"5000000000 1000\n", 5000000}, {"", std::nullopt},
      {"nonsense\n", std::nullopt},   {"100000\n", std::nullopt},     {"100000 0\n", std::nullopt},
      {"-5 100000\n", std::nullopt},
  };
  for (const auto& row : rows) {
    has(file, row.limit);
    EXPECT_EQ(cores(), row.cores) << row.limit;
  }
}

TEST_F(ControlGroup, IsLimitedByEveryGroupAboveIt) {
  mountsVersionTwo();
  belongsTo("0::/a/b/c\n");
  has("sys/fs/cgroup/a/b/c/cpu.max", "800000 100000\n");
  EXPECT_EQ(cores(), 8);
  has("sys/fs/cgroup/a/cpu.max", "300000 100000\n");
  EXPECT_EQ(cores(), 3);
  has("sys/fs/cgroup/a/b/cpu.max", "max 100000\n");
  EXPECT_EQ(cores(), 3);
  has("sys/fs/cgroup/cpu.max", "200000 100000\n");
  EXPECT_EQ(cores(), 2);
  has("sys/fs/cgroup/other/cpu.max", "100000 100000\n");
  EXPECT_EQ(cores(), 2) << "a group beside it does not count";
}

TEST_F(ControlGroup, OfAContainerLiesAtTheMountPointOrBelow) {
  has("sys/fs/cgroup/cpu.max", "200000 100000\n");
  belongsTo("0::/\n");  // seen from a namespace of control groups
  mountsVersionTwo();
  EXPECT_EQ(cores(), 2);
  belongsTo("0::/box/1234\n");  // only the container's own part is mounted
  mountsVersionTwo("/box/1234");
  EXPECT_EQ(cores(), 2);
  has("sys/fs/cgroup/inner/cpu.max", "100000 100000\n");
  belongsTo("0::/box/1234/inner\n");
  EXPECT_EQ(cores(), 1);
  belongsTo("0::/../outside\n");
  EXPECT_EQ(cores(), 2) << "a group that is not to be seen: what is mounted counts";
}

TEST_F(ControlGroup, OfVersionOneAllowsItsQuotaRoundedUp) {
  mounts(
      "41 24 0:31 / /sys/fs/cgroup/memory rw - cgroup cgroup rw,memory\n"
      "42 24 0:32 / /sys/fs/cgroup/cpu,cpuacct rw - cgroup cgroup rw,cpu,cpuacct\n");
  belongsTo("5:memory:/elsewhere\n4:cpuset:/other\n3:cpu,cpuacct:/box/1\n1:name=systemd:/\n");
  const std::string folder = "sys/fs/cgroup/cpu,cpuacct/box";
  has(folder + "/1/cpu.cfs_quota_us", "-1\n");
  has(folder + "/1/cpu.cfs_period_us", "100000\n");
  EXPECT_EQ(cores(), std::nullopt);
  has(folder + "/1/cpu.cfs_quota_us", "250000\n");
  EXPECT_EQ(cores(), 3);
  has(folder + "/cpu.cfs_quota_us", "100000\n");
  has(folder + "/cpu.cfs_period_us", "100000\n");
  EXPECT_EQ(cores(), 1);
}

TEST_F(ControlGroup, OfBothVersionsIsLimitedByEither) {
  mounts(
      "42 24 0:32 / /sys/fs/cgroup/cpu rw - cgroup cgroup rw,cpu\n"
      "43 24 0:33 / /sys/fs/cgroup/unified rw - cgroup2 cgroup2 rw\n");
  belongsTo("1:cpu:/one\n0::/two\n");
  has("sys/fs/cgroup/cpu/one/cpu.cfs_quota_us", "400000\n");
  has("sys/fs/cgroup/cpu/one/cpu.cfs_period_us", "100000\n");
  EXPECT_EQ(cores(), 4);
  has("sys/fs/cgroup/unified/two/cpu.max", "300000 100000\n");
  EXPECT_EQ(cores(), 3);
}

TEST_F(ControlGroup, OfAPathWithColonsIsFound) {
  mountsVersionTwo();
  belongsTo("0::/a:b/c\n");
  has("sys/fs/cgroup/a:b/c/cpu.max", "100000 100000\n");
  EXPECT_EQ(cores(), 1);
}

}  // namespace
}  // namespace sorvane::test
