// The map of the folders in README.md.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/Documents.h"

namespace sorvane::layout {
namespace {

namespace fs = std::filesystem;

const fs::path kSource = SORVANE_SOURCE_DIR;

/// The folders of the map, as "src/platform/wire". A line is "wire/   what it holds", with two more
/// blanks before it than before the folder that contains it. Other lines tell of files.
std::set<std::string> foldersOfMap() {
  const auto readme = test::documentLines(kSource / "README.md");
  const auto blocks = test::fencedBlocks(test::chapter(readme, "## The folders"), "");
  EXPECT_EQ(blocks.size(), 1U);
  std::istringstream map(blocks.empty() ? "" : blocks[0]);
  std::set<std::string> folders;
  std::vector<std::string> around;  // the folders that contain a line's folder, outermost first
  for (std::string line; std::getline(map, line);) {
    const std::size_t indent = std::min(line.find_first_not_of(' '), line.size());
    const std::size_t end = line.find(' ', indent);
    const std::string name = line.substr(indent, end - indent);
    if (!name.ends_with('/')) {
      continue;
    }
    EXPECT_TRUE(indent % 2 == 0 && indent / 2 <= around.size()) << line;
    EXPECT_NE(line.find_first_not_of(' ', end), std::string::npos) << line;
    around.resize(indent / 2);
    std::string path;
    for (const std::string& each : around) {
      path += each;
    }
    around.push_back(name);
    folders.insert(path + name.substr(0, name.size() - 1));
  }
  return folders;
}

/// Those of the folders that lie directly in this one.
std::set<std::string> within(const std::string& parent, const std::set<std::string>& folders) {
  std::set<std::string> inner;
  for (const std::string& folder : folders) {
    if (fs::path(folder).parent_path() == parent) {
      inner.insert(folder);
    }
  }
  return inner;
}

TEST(MapOfFolders, NamesTheFoldersOfSrcAndOfItsPlatform) {
  for (const char* parent : {"src", "src/platform"}) {
    std::set<std::string> there;
    for (const auto& entry : fs::directory_iterator(kSource / parent)) {
      if (entry.is_directory()) {
        there.insert(entry.path().lexically_relative(kSource).string());
      }
    }
    EXPECT_EQ(within(parent, foldersOfMap()), there);
  }
}

// A checkout can hold further folders, such as build/.
TEST(MapOfFolders, NamesNoFolderThatIsNotThere) {
  const auto folders = foldersOfMap();
  EXPECT_FALSE(folders.empty());
  for (const std::string& folder : folders) {
    EXPECT_TRUE(fs::is_directory(kSource / folder)) << folder;
  }
}

}  // namespace
}  // namespace sorvane::layout
