// A file for functions that read one by its path.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <string>
#include <string_view>

#include "support/Require.h"

namespace sorvane::fuzz {

/// It has a path, but is on no disk.
class FileInMemory {
 public:
  FileInMemory() : descriptor_(memfd_create("fuzzed", MFD_CLOEXEC)) {}
  ~FileInMemory() { close(descriptor_); }
  FileInMemory(const FileInMemory&) = delete;
  FileInMemory& operator=(const FileInMemory&) = delete;

  [[nodiscard]] std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }
  /// Replaces what the file holds.
  void hold(std::string_view content) const {
    require(ftruncate(descriptor_, 0) == 0 && pwrite(descriptor_, content.data(), content.size(),
                                                     0) == static_cast<ssize_t>(content.size()),
            "a file in memory can be written");
  }

 private:
  const int descriptor_;
};

}  // namespace sorvane::fuzz
