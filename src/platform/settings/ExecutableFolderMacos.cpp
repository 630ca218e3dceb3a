#include <mach-o/dyld.h>

#include <cstdint>
#include <filesystem>

#include "platform/Settings.h"

namespace sorvane {

std::string executableFolder() {
  std::uint32_t length = 0;
  _NSGetExecutablePath(nullptr, &length);  // tells the length
  std::string path(length, '\0');
  _NSGetExecutablePath(path.data(), &length);
  std::error_code failure;
  const std::filesystem::path program = std::filesystem::canonical(path.c_str(), failure);
  return failure ? "/" : program.parent_path().string();
}

}  // namespace sorvane
