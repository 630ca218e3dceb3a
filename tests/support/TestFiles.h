// Files and folders of a test's own.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace sorvane::test {

/// A fresh folder below the system's temporary folder, removed with everything in it at the end of
/// its life.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  [[nodiscard]] std::filesystem::path operator/(std::string_view name) const {
    return path_ / name;
  }

 private:
  std::filesystem::path path_;
};

/// The whole content of a file; fails the running test and returns "" when it cannot be read.
std::string readFile(const std::filesystem::path& path);

/// Writes a file anew, creating the folders above it.
void writeFile(const std::filesystem::path& path, std::string_view content);

/// Waits until a file, which need not be there yet, holds that text so many times; false when it
/// does not within `kPatience`, and when there is no folder for it.
[[nodiscard]] bool comesToHold(const std::filesystem::path& path, std::string_view text,
                               int times = 1);

}  // namespace sorvane::test
