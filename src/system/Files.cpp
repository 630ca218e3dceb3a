#include "system/Files.h"

#include <filesystem>
#include <system_error>

#include "system/PathText.h"
#include "system/TreeCopy.h"

namespace sorvane {
namespace {

namespace fs = std::filesystem;

bool copyPath(const char* source, const char* destination) {
  const auto from = adaptedPath(source, PathCopy::whereChanged);
  const auto to = adaptedPath(destination, PathCopy::whereChanged);
  return from && to && copyTree(*from, *to);
}

/// The path without the slashes at its end. With them, a link to a folder would mean that folder.
fs::path withoutSlashAtEnd(const fs::path& path) {
  return path.has_filename() ? path : path.parent_path();
}

/// True for the root, and for a path that ends in "." or "..". Removing such a folder would remove
/// the path that leads to it.
bool isNeverRemoved(const fs::path& path) {
  const fs::path last = withoutSlashAtEnd(path).filename();
  return last.empty() || last == "." || last == "..";
}

bool removePath(const char* path, PathCopy copy) {
  const auto given = adaptedPath(path, copy);
  std::error_code error;
  // A slash at the end of a plain file's path makes it a place where nothing exists.
  if (!given || isNeverRemoved(*given) || !fs::exists(fs::symlink_status(*given, error))) {
    return false;
  }
  const std::uintmax_t removed = fs::remove_all(withoutSlashAtEnd(*given), error);
  return !error && removed > 0;
}

}  // namespace

bool VN_directoryExists(const char* path) {
  const auto target = adaptedPath(path, PathCopy::whereChanged);
  std::error_code error;
  return target && fs::exists(*target, error);
}

bool VN_copyFile(const char* source, const char* destination) {
  return copyPath(source, destination);
}

bool VN_copyDirectory(const char* source, const char* destination) {
  return copyPath(source, destination);
}

bool VN_changeDirectory(const char* path) {
  const auto target = adaptedPath(path, PathCopy::whereChanged);
  std::error_code error(1, std::system_category());
  if (target) {
    fs::current_path(*target, error);
  }
  return !error;
}

bool VN_createDirectory(const char* path) {
  const auto target = adaptedPath(path, PathCopy::always);
  std::error_code error;
  return target && fs::create_directory(*target, error);
}

int VN_removeDirectory(const char* path) {
  static_cast<void>(removePath(path, PathCopy::whereChanged));
  return 1;
}

bool VN_removeFile(const char* path) { return removePath(path, PathCopy::always); }

}  // namespace sorvane
