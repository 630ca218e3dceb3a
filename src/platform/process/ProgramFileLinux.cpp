#include <filesystem>

#include "platform/ProgramFile.h"

namespace sorvane {

const std::string& programFile() {
  static const std::string path = [] {
    std::error_code failure;
    return std::filesystem::read_symlink("/proc/self/exe", failure).string();  // proc(5)
  }();
  return path;
}

}  // namespace sorvane
