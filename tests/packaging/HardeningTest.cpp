// What makes a mistake in an installed program hard to use.
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include <filesystem>
#include <memory>
#include <regex>
#include <string>

#include "support/TestFiles.h"
#include "support/TestedBuild.h"

namespace sorvane {
namespace {

namespace fs = std::filesystem;

/// What a shell command prints.
std::string outputOf(const std::string& command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  std::string output;
  for (int character = 0; pipe != nullptr && (character = fgetc(pipe.get())) != EOF;) {
    output += static_cast<char>(character);
  }
  return output;
}

class InstalledProgram : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    const std::string install = "cmake --install '" + test::testedBuild().string() +
                                "' --prefix '" + folder_.path().string() + "' > /dev/null";
    ASSERT_EQ(system(install.c_str()), 0) << install;
    program_ = outputOf("readelf --wide --file-header --dynamic --segments --dyn-syms '" +
                        (folder_ / "bin" / GetParam()).string() + "'");
    ASSERT_NE(program_.find("ELF Header:"), std::string::npos) << "is binutils installed?";
  }

  [[nodiscard]] bool shows(const std::string& pattern) const {
    return std::regex_search(program_, std::regex(pattern));
  }

  test::TemporaryFolder folder_;
  std::string program_;
};

TEST_P(InstalledProgram, IsLoadedAtAnotherAddressEachTime) {
  EXPECT_TRUE(shows("Type: +DYN"));
  EXPECT_TRUE(shows(R"(\(FLAGS_1\).* PIE)"));
}

TEST_P(InstalledProgram, ResolvesItsFunctionsAtTheStartAndThenWriteProtectsThem) {
  EXPECT_TRUE(shows("GNU_RELRO"));
  EXPECT_TRUE(shows(R"(\(FLAGS_1\).* NOW)"));
}

TEST_P(InstalledProgram, CannotRunItsStack) { EXPECT_TRUE(shows("GNU_STACK[^\n]* RW +0x")); }

TEST_P(InstalledProgram, NoticesAnOverwrittenReturnAddress) {
  EXPECT_TRUE(shows("__stack_chk_(fail|guard)"));
}

// The library offers these checks to optimised builds alone.
#ifdef NDEBUG
TEST_P(InstalledProgram, ChecksTheRoomOfTheLibrarysCopies) {
  EXPECT_TRUE(shows("__[a-z]*(printf|cpy|read|recv|set|move|poll)[a-z]*_chk"));
}
#endif

INSTANTIATE_TEST_SUITE_P(Hardening, InstalledProgram, testing::Values("sorvinfo", "sorvctl"),
                         [](const auto& program) { return std::string(program.param); });

}  // namespace
}  // namespace sorvane
