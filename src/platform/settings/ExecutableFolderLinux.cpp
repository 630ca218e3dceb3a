#include <filesystem>

#include "platform/Settings.h"

namespace sorvane {

std::string executableFolder() {
  std::error_code failure;
  const std::filesystem::path program =
      std::filesystem::read_symlink("/proc/self/exe", failure);  // proc(5)
  return failure ? "/" : program.parent_path().string();
}

}  // namespace sorvane
