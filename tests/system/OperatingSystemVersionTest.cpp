#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/utsname.h>

#include <filesystem>
#include <string>

#include "support/OwnNamespaces.h"
#include "support/TestFiles.h"
#include "system/ProcessInfo.h"

namespace sorvane {
namespace {

constexpr const char* kReleaseFile = "/etc/os-release";

std::string version() {
  return ProcessInfo::processInfo().operatingSystemVersionString().value_or("none");
}

std::string kernel() {
  utsname name{};
  uname(&name);
  return std::string(name.sysname) + " " + name.release;
}

TEST(OperatingSystemVersion, IsThePrettyNameOfTheReleaseAndTheKernel) {
  test::inOwnMounts([] {
    test::mountSmallDisk("/etc", 64);
    for (const char* text : {"PRETTY_NAME=\"System 7\"\n", "NAME=x\nPRETTY_NAME='System 7'",
                             "PRETTY_NAME=System 7\n"}) {
      test::writeFile(kReleaseFile, text);
      EXPECT_EQ(version(), "System 7 (" + kernel() + ")") << text;
    }
  });
}

TEST(OperatingSystemVersion, IsTheKernelAloneWithoutAReleaseFile) {
  test::inOwnMounts([] {
    test::mountSmallDisk("/etc", 64);
    EXPECT_EQ(version(), kernel());
    test::writeFile(kReleaseFile, "NAME=x\n");
    EXPECT_EQ(version(), kernel());
    std::filesystem::remove(kReleaseFile);
    ASSERT_EQ(mkfifo(kReleaseFile, 0600), 0);
    EXPECT_EQ(version(), kernel()) << "a pipe without a writer";
  });
}

}  // namespace
}  // namespace sorvane
