#include "support/TestFiles.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

namespace sorvane::test {

TemporaryFolder::TemporaryFolder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "sorvane-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) {
    throw std::runtime_error("no temporary folder could be made: " + pattern);
  }
  path_ = pattern;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string readFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  EXPECT_TRUE(file.is_open()) << "cannot read " << path;
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

void writeFile(const std::filesystem::path& path, std::string_view content) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << content;
  file.flush();
  EXPECT_TRUE(file.good()) << "cannot write " << path;
}

}  // namespace sorvane::test
