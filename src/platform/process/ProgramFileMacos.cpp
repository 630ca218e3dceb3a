#include <mach-o/dyld.h>

#include <cstdint>
#include <filesystem>

#include "platform/ProgramFile.h"

namespace sorvane {

const std::string& programFile() {
  static const std::string path = [] {
    std::uint32_t length = 0;
    _NSGetExecutablePath(nullptr, &length);  // tells the length
    std::string told(length, '\0');
    _NSGetExecutablePath(told.data(), &length);
    std::error_code failure;
    return std::filesystem::canonical(told.c_str(), failure).string();
  }();
  return path;
}

}  // namespace sorvane
