#include "support/TestFiles.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "support/ConsoleLines.h"
#include "support/WaitUntil.h"

namespace sorvane::test {
namespace {

using Clock = std::chrono::steady_clock;

/// Tells when something is written in a folder.
class FolderWatch {
 public:
  explicit FolderWatch(const std::filesystem::path& folder)
      : descriptor_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    if (descriptor_ < 0) {
      throw std::runtime_error("no folder can be watched");
    }
    inotify_add_watch(descriptor_, folder.c_str(), IN_CREATE | IN_MODIFY | IN_MOVED_TO);
  }
  ~FolderWatch() { close(descriptor_); }
  FolderWatch(const FolderWatch&) = delete;
  FolderWatch& operator=(const FolderWatch&) = delete;

  /// Waits for something written since the making, or the last call; false when nothing is by then.
  [[nodiscard]] bool waitUntil(Clock::time_point end) const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    pollfd written{descriptor_, POLLIN, 0};
    if (poll(&written, 1, static_cast<int>(std::max<std::int64_t>(left, 0))) <= 0) {
      return false;
    }
    std::array<char, 65536> events;
    return read(descriptor_, events.data(), events.size()) > 0;
  }

 private:
  int descriptor_;
};

}  // namespace

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

bool comesToHold(const std::filesystem::path& path, std::string_view text, int times) {
  if (!std::filesystem::is_directory(path.parent_path())) {
    return false;
  }
  const Clock::time_point end = Clock::now() + kPatience;
  const FolderWatch watch(path.parent_path());
  do {
    if (std::filesystem::exists(path) && timesIn(readFile(path), text) >= times) {
      return true;
    }
  } while (watch.waitUntil(end));
  return false;
}

}  // namespace sorvane::test
