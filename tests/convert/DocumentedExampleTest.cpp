// The program that docs/libraries.md shows, built from there.
#include <gtest/gtest.h>

#include <filesystem>

#include "support/Program.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

std::string lastBlockOf(const std::string& document) {
  const std::string fence = "\n```\n";
  const std::size_t end = document.rfind(fence);
  const std::size_t begin = document.rfind(fence, end - 1) + fence.size();
  return document.substr(begin, end + 1 - begin);
}

TEST(DocumentedExample, PrintsWhatTheDocumentSays) {
  const TemporaryFolder tree;
  fs::create_directories(tree / "bin");
  fs::create_directories(tree / "etc");
  fs::copy(SORVANE_DOCUMENTED_EXAMPLE, tree / "bin/example");
  writeFile(tree / "etc/sorvane.conf", "BonjourDisabled = YES;\n");
  Program example(tree / "bin/example", {});
  EXPECT_EQ(example.wait(), 0) << example.errors();
  EXPECT_EQ(example.output(),
            lastBlockOf(readFile(fs::path(SORVANE_SOURCE_DIR) / "docs/libraries.md")));
}

}  // namespace
}  // namespace sorvane::test
