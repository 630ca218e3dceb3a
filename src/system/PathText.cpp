#include "system/PathText.h"

#include <algorithm>
#include <utility>

#include "platform/Utf8.h"
#include "system/ProcessInfo.h"

namespace sorvane {
std::optional<std::filesystem::path> adaptedPath(const char* path, PathCopy copy) {
  if (path == nullptr) {
    return std::nullopt;
  }
  const bool windows = ProcessInfo::processInfo().operatingSystem() == OperatingSystem::NSWindowsNT;
  std::string text = path;
  if (windows || copy == PathCopy::always) {
    text.resize(std::min(text.size(), kLongestCopiedPath));
  }
  if (windows) {
    std::replace(text.begin(), text.end(), '/', '\\');
  }
  if (!isUtf8(text)) {
    return std::nullopt;
  }
  return std::filesystem::path(std::move(text));
}

}  // namespace sorvane
