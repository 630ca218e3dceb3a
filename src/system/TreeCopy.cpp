#include "system/TreeCopy.h"

#include <algorithm>
#include <system_error>

namespace sorvane {
namespace {

namespace fs = std::filesystem;
using std::error_code;

error_code copyAny(const fs::path& source, const fs::path& destination);

error_code copyFolder(const fs::path& source, const fs::path& destination, fs::perms permissions) {
  error_code error;
  if (!fs::create_directory(destination, error)) {
    return error ? error : make_error_code(std::errc::file_exists);
  }
  // The folder gets its own permissions after it is filled, since they may forbid writing into it.
  fs::permissions(destination, fs::perms::owner_all, error);
  fs::directory_iterator entry(source, error);
  while (!error && entry != fs::directory_iterator()) {
    error = copyAny(entry->path(), destination / entry->path().filename());
    if (!error) {
      entry.increment(error);
    }
  }
  if (!error) {
    fs::permissions(destination, permissions, error);
  }
  return error;
}

error_code copyAny(const fs::path& source, const fs::path& destination) {
  error_code error;
  const fs::file_status status = fs::symlink_status(source, error);
  switch (status.type()) {
    case fs::file_type::symlink:
      fs::copy_symlink(source, destination, error);
      return error;
    case fs::file_type::directory:
      error = copyFolder(source, destination, status.permissions());
      break;
    case fs::file_type::regular:
      fs::copy_file(source, destination, fs::copy_options::none, error);
      break;
    case fs::file_type::not_found:
      return make_error_code(std::errc::no_such_file_or_directory);
    default:
      return make_error_code(std::errc::not_supported);
  }
  if (error) {
    return error;
  }
  const fs::file_time_type time = fs::last_write_time(source, error);
  if (!error) {
    fs::last_write_time(destination, time, error);
  }
  return error;
}

/// True when `destination` lies in the tree under `source`. Such a copy would never end.
bool liesInside(const fs::path& destination, const fs::path& source) {
  error_code error;
  const fs::path tree = fs::canonical(source, error);
  const fs::path place = fs::weakly_canonical(fs::absolute(destination, error), error);
  return !error &&
         std::mismatch(tree.begin(), tree.end(), place.begin(), place.end()).first == tree.end();
}

}  // namespace

bool copyTree(const fs::path& source, const fs::path& destination) {
  error_code error;
  if (fs::exists(fs::symlink_status(destination, error))) {
    return false;
  }
  if (fs::is_directory(fs::symlink_status(source, error)) && liesInside(destination, source)) {
    return false;
  }
  const error_code failure = copyAny(source, destination);
  // What another process has made at the destination meanwhile stays.
  if (failure && failure != std::errc::file_exists) {
    fs::remove_all(destination, error);
  }
  return !failure;
}

}  // namespace sorvane
