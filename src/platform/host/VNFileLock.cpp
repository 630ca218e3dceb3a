#include "platform/VNFileLock.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <system_error>
#include <utility>

#include "platform/Console.h"
#include "platform/Settings.h"
#include "platform/WithoutInterruption.h"
#include "platform/host/LockHolder.h"

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

std::string lockPath(const std::string& name) {
  return Settings::current().lockDirectory + '/' + name + ".lock";
}

std::optional<int> writtenProcess(int descriptor) {
  char text[32];
  const ssize_t length = pread(descriptor, text, sizeof text, 0);
  int number = 0;
  const bool read =
      length > 0 && std::from_chars(text, text + length, number).ec == std::errc() && number > 0;
  return read ? std::optional(number) : std::nullopt;
}

}  // namespace

std::shared_ptr<VNFileLock> VNFileLock::fileLockWithSorvaneProcessName(const std::string& name) {
  return std::shared_ptr<VNFileLock>(new VNFileLock(lockPath(name)));
}

std::shared_ptr<VNFileLock> VNFileLock::heldLock(const std::string& name, Descriptor held) {
  struct stat status {};
  // A lock that is held by this very descriptor can be taken again.
  if (fstat(held.number(), &status) != 0 || !S_ISREG(status.st_mode) ||
      flock(held.number(), LOCK_EX | LOCK_NB) != 0 ||
      fcntl(held.number(), F_SETFD, FD_CLOEXEC) != 0) {
    static_cast<void>(held.release());
    return nullptr;
  }
  auto lock = fileLockWithSorvaneProcessName(name);
  lock->held_ = std::move(held);
  return lock;
}

int VNFileLock::descriptorOfHeldLock(const std::string& name, const std::vector<int>& descriptors) {
  const std::string path = lockPath(name);
  const auto holds = [&](int each) {
    struct stat status {};
    return fstat(each, &status) == 0 && isFileAt(path, status) &&
           flock(each, LOCK_EX | LOCK_NB) == 0;
  };
  const auto found = std::find_if(descriptors.begin(), descriptors.end(), holds);
  return found == descriptors.end() ? -1 : *found;
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

FileLockLook VNFileLock::look(const std::string& name) {
  FileLockLook look;
  look.path = lockPath(name);
  const Descriptor file(open(look.path.c_str(), O_RDONLY | kOpenFlags));
  struct stat status {};
  if (!file.isOpen() && errno == ENOENT) {
    look.state = FileLockLook::State::free;
  } else if (!file.isOpen() || fstat(file.number(), &status) != 0) {
    // Who may not read it cannot tell whether others can use it.
    look.state = errno == EACCES ? FileLockLook::State::unknown : FileLockLook::State::unusable;
    look.reason = std::generic_category().message(errno);
  } else if (!S_ISREG(status.st_mode)) {
    look.state = FileLockLook::State::unusable;
    look.reason = "it is no plain file";
  } else {
    look.written = writtenProcess(file.number());
    if (const auto found = holderOfLock(status.st_dev, status.st_ino, look.written)) {
      look.state = found->process ? FileLockLook::State::held : FileLockLook::State::free;
      look.holder = found->process;
    }
  }
  return look;
}

}  // namespace sorvane
