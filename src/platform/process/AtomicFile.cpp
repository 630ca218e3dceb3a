#include "platform/AtomicFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <optional>

#include "platform/Descriptor.h"
#include "platform/WithoutInterruption.h"

namespace sorvane {
namespace {

namespace fs = std::filesystem;

std::error_code lastError() { return {errno, std::generic_category()}; }

Descriptor openFile(const fs::path& path, int flags, mode_t mode = 0) {
  return Descriptor(
      withoutInterruption([&] { return ::open(path.c_str(), flags | O_CLOEXEC, mode); }));
}

/// Replaces `path` by the file that it names, if it is a symbolic link. Follows links of links,
/// too. The file at the end need not exist.
std::error_code followLinks(fs::path& path) {
  constexpr int kMostLinks = 40;
  std::error_code error;
  for (int links = 0;; ++links) {
    const fs::file_status status = fs::symlink_status(path, error);
    if (status.type() == fs::file_type::none) {
      return error;  // it may be a link, which the file must not replace
    }
    if (!fs::is_symlink(status)) {
      return {};  // if the path cannot be reached, its first use reports that
    }
    if (links == kMostLinks) {
      return std::make_error_code(std::errc::too_many_symbolic_link_levels);
    }
    const fs::path target = fs::read_symlink(path, error);
    if (error) {
      return error;
    }
    path = path.parent_path() / target;
  }
}

fs::path folderOf(const fs::path& path) {
  return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

std::error_code flush(int descriptor) {
  return withoutInterruption([&] { return ::fsync(descriptor); }) == -1 ? lastError()
                                                                        : std::error_code();
}

std::error_code flushFolder(const fs::path& folder) {
  const Descriptor descriptor = openFile(folder, O_RDONLY | O_DIRECTORY);
  if (!descriptor.isOpen()) {
    return lastError();
  }
  const std::error_code error = flush(descriptor.number());
  // Some file systems cannot flush a folder and return EINVAL.
  return error == std::errc::invalid_argument ? std::error_code() : error;
}

/// Creates the folder and the missing folders above it. Flushes the folder above each new one.
std::error_code createFolders(const fs::path& folder) {
  if (::mkdir(folder.c_str(), 0777) == 0) {
    return flushFolder(folderOf(folder));
  }
  if (errno == EEXIST) {
    return {};  // if it is not a folder, its first use reports that
  }
  if (errno != ENOENT || !folder.has_relative_path()) {
    return lastError();
  }
  if (const std::error_code error = createFolders(folderOf(folder))) {
    return error;
  }
  return ::mkdir(folder.c_str(), 0777) == 0 || errno == EEXIST ? flushFolder(folderOf(folder))
                                                               : lastError();
}

std::string temporaryPrefix(const fs::path& file) {
  return "." + file.filename().string() + ".tmp-";
}

fs::path nextTemporary(const fs::path& file) {
  static std::atomic<unsigned long> count = 0;
  return folderOf(file) /
         (temporaryPrefix(file) + std::to_string(::getpid()) + "-" + std::to_string(++count));
}

/// Gives the new file the owner, group and mode of the file that it replaces. If the group cannot
/// be kept, its rights are cut to those of everybody: they were meant for another group.
std::error_code keepOwnerAndMode(int descriptor, const struct stat& former) {
  struct stat now {};
  if (::fstat(descriptor, &now) == -1) {
    return lastError();
  }
  mode_t mode = former.st_mode & 07777;
  if ((now.st_uid != former.st_uid || now.st_gid != former.st_gid) &&
      ::fchown(descriptor, former.st_uid, former.st_gid) == -1 && now.st_gid != former.st_gid &&
      ::fchown(descriptor, static_cast<uid_t>(-1), former.st_gid) == -1) {
    const mode_t everybody = (mode & S_IRWXO) << 3;
    mode &= ~static_cast<mode_t>(S_ISUID | S_ISGID | S_IRWXG) | everybody;
  }
  return ::fchmod(descriptor, mode) == -1 ? lastError() : std::error_code();
}

/// Creates the temporary file, writes and flushes it, and renames it to `file`. Returns nullopt if
/// another temporary name must be tried.
std::optional<std::error_code> replaceBy(const fs::path& temporary, const fs::path& file,
                                         const struct stat* former, std::string_view content) {
  const mode_t mode = former != nullptr ? 0600 : 0644;
  const Descriptor descriptor = openFile(temporary, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, mode);
  if (!descriptor.isOpen()) {
    return errno == EEXIST ? std::nullopt : std::optional(lastError());
  }
  // The lock shows other processes that this file is not abandoned. One of them may have removed it
  // before the lock was taken: the file then has no link any more. On a file system without locks
  // the file is written all the same.
  (void)withoutInterruption([&] { return ::flock(descriptor.number(), LOCK_EX); });
  struct stat created {};
  if (::fstat(descriptor.number(), &created) == 0 && created.st_nlink == 0) {
    return std::nullopt;
  }

  std::error_code error = writeAll(descriptor.number(), content);
  if (!error && former != nullptr) {
    error = keepOwnerAndMode(descriptor.number(), *former);
  }
  if (!error) {
    error = flush(descriptor.number());
  }
  if (!error && ::rename(temporary.c_str(), file.c_str()) == -1) {
    error = lastError();
  }
  if (error) {
    ::unlink(temporary.c_str());
    return error;
  }
  return flushFolder(folderOf(file));
}

}  // namespace

std::error_code replaceFile(const std::string& path, std::string_view content) {
  fs::path file = path;
  if (const std::error_code error = followLinks(file)) {
    return error;
  }
  struct stat former {};
  const bool exists = ::stat(file.c_str(), &former) == 0;
  if (!exists && errno != ENOENT) {
    return lastError();
  }
  if (exists && !S_ISREG(former.st_mode)) {
    return std::make_error_code(S_ISDIR(former.st_mode) ? std::errc::is_a_directory
                                                        : std::errc::invalid_argument);
  }
  if (!exists) {
    if (const std::error_code error = createFolders(folderOf(file))) {
      return error;
    }
  }
  std::optional<std::error_code> outcome;
  while (!outcome) {
    outcome = replaceBy(nextTemporary(file), file, exists ? &former : nullptr, content);
  }
  return *outcome;
}

void removeAbandonedTemporaries(const std::string& path) {
  fs::path file = path;
  if (followLinks(file)) {
    return;
  }
  const std::string prefix = temporaryPrefix(file);
  std::error_code error;
  for (fs::directory_iterator entry(folderOf(file), error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    if (!name.starts_with(prefix) ||
        name.find_first_not_of("0123456789-", prefix.size()) != std::string::npos) {
      continue;
    }
    // O_NONBLOCK: opening a pipe of such a name must not wait. A shared lock is enough to find a
    // writer at work. Network file systems give it also to a descriptor that is only for reading.
    const Descriptor descriptor = openFile(entry->path(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    struct stat status {};
    if (descriptor.isOpen() && ::fstat(descriptor.number(), &status) == 0 &&
        S_ISREG(status.st_mode) &&
        withoutInterruption([&] { return ::flock(descriptor.number(), LOCK_SH | LOCK_NB); }) == 0) {
      ::unlink(entry->path().c_str());
    }
  }
}

}  // namespace sorvane
