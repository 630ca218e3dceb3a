#include "platform/VNFileLock.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <system_error>
#include <utility>

#include "platform/Console.h"
#include "platform/Settings.h"
#include "platform/WithoutInterruption.h"

namespace sorvane {
namespace {

// O_NONBLOCK: opening must not wait if somebody has put a FIFO there.
constexpr int kOpenFlags = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
constexpr mode_t kFileMode = 0644;
constexpr mode_t kParentMode = 0755;
constexpr mode_t kFolderMode = 01777;  // any user may create a lock, none may remove another's

/// Creates a folder with exactly these rights, whatever the process's mask is.
bool createFolder(const std::string& folder, mode_t mode) {
  if (mkdir(folder.c_str(), mode) == 0) {
    return chmod(folder.c_str(), mode) == 0;
  }
  return errno == EEXIST;
}

bool createFolderAndParents(const std::string& folder) {
  for (std::size_t slash = folder.find('/', 1); slash != std::string::npos;
       slash = folder.find('/', slash + 1)) {
    if (!createFolder(folder.substr(0, slash), kParentMode)) {
      return false;
    }
  }
  return createFolder(folder, kFolderMode);
}

/// Opens an existing file, for reading only if it may not be written.
Descriptor openExisting(const char* path) {
  Descriptor file(open(path, O_RDWR | kOpenFlags));
  if (file.isOpen() || (errno != EACCES && errno != EPERM && errno != EROFS)) {
    return file;
  }
  return Descriptor(open(path, O_RDONLY | kOpenFlags));
}

Descriptor createFile(const char* path) {
  Descriptor file(open(path, O_RDWR | O_CREAT | O_EXCL | kOpenFlags, kFileMode));
  if (file.isOpen()) {
    fchmod(file.number(), kFileMode);
  }
  return file;
}

/// Opens the lock file and creates it if it is missing. Returns none and sets errno on failure.
Descriptor openLockFile(const std::string& path) {
  for (;;) {
    // O_CREAT comes only later: a system may refuse it for another user's file in a sticky folder.
    Descriptor file = openExisting(path.c_str());
    if (file.isOpen() || errno != ENOENT) {
      return file;
    }
    if (!createFolderAndParents(path.substr(0, path.rfind('/')))) {
      return {};
    }
    file = createFile(path.c_str());
    if (file.isOpen() || errno != EEXIST) {
      return file;
    }
  }
}

/// Returns true if the path still leads to the open file. A lock on a removed file keeps nobody
/// out.
bool isFileAt(const std::string& path, const struct stat& open) {
  struct stat named {};
  return lstat(path.c_str(), &named) == 0 && named.st_dev == open.st_dev &&
         named.st_ino == open.st_ino;
}

void writeProcessNumber(int descriptor, const struct stat& status) {
  if (status.st_nlink != 1) {
    return;  // the file has a second name: it may be somebody's data
  }
  const std::string number = std::to_string(getpid()) + '\n';
  const ssize_t written = pwrite(descriptor, number.data(), number.size(), 0);
  if (written > 0 && ftruncate(descriptor, written) != 0) {
    return;  // the number is for people; the lock holds without it
  }
}

enum class Attempt { obtained, heldElsewhere, failed, again };

Attempt lockFile(int descriptor, const std::string& path) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0) {
    return Attempt::failed;
  }
  if (!S_ISREG(status.st_mode)) {
    errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return Attempt::failed;
  }
  if (withoutInterruption([=] { return flock(descriptor, LOCK_EX | LOCK_NB); }) != 0) {
    return errno == EWOULDBLOCK ? Attempt::heldElsewhere : Attempt::failed;
  }
  if (!isFileAt(path, status)) {
    return Attempt::again;
  }
  writeProcessNumber(descriptor, status);
  return Attempt::obtained;
}

}  // namespace

std::shared_ptr<VNFileLock> VNFileLock::fileLockWithSorvaneProcessName(const std::string& name) {
  return std::shared_ptr<VNFileLock>(
      new VNFileLock(Settings::current().lockDirectory + '/' + name + ".lock"));
}

VNFileLock::VNFileLock(std::string path) : path_(std::move(path)) {}

bool VNFileLock::obtainLock() {
  if (held_.isOpen()) {
    return true;
  }
  for (;;) {
    Descriptor file = openLockFile(path_);
    const Attempt attempt = file.isOpen() ? lockFile(file.number(), path_) : Attempt::failed;
    if (attempt == Attempt::obtained) {
      held_ = std::move(file);
      return true;
    }
    if (attempt == Attempt::failed) {
      const int reason = errno;
      consoleLine("the process lock " + path_ +
                  " cannot be taken: " + std::generic_category().message(reason));
    }
    if (attempt != Attempt::again) {
      return false;
    }
  }
}

}  // namespace sorvane
