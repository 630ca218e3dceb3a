#include "sorvctl/doctor/ServerFiles.h"

#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <limits.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/WithoutInterruption.h"

namespace sorvctl::doctor {

namespace {

// What follows runs in a child of a process with threads: it allocates nothing.

int errorOf(int result) { return result == 0 ? 0 : errno; }

/// The path below the folder that stands for the root.
const char* below(int root, const char* path) {
  while (root != AT_FDCWD && *path == '/') {
    ++path;
  }
  return *path != '\0' ? path : ".";
}

int whyNotAccessible(int root, const char* path, int mode) {
  return errorOf(faccessat(root, below(root, path), mode, AT_EACCESS));
}

/// Cuts the last part off a path, in place. False if there is none left.
bool leaveLastPart(char* path) {
  char* const slash = strrchr(path, '/');
  if (slash == nullptr || path[1] == '\0') {
    return false;
  }
  slash[slash == path ? 1 : 0] = '\0';
  return true;
}

int whyFolderNotWritable(int root, const char* file, bool parentsToo) {
  char path[PATH_MAX] = {};
  strncpy(path, file, sizeof path - 1);
  int reason = ENOENT;
  while (reason == ENOENT && leaveLastPart(path)) {
    reason = whyNotAccessible(root, path, W_OK | X_OK);
    if (!parentsToo) {
      break;
    }
  }
  return reason;
}

int whyNotWritableHere(int root, const char* file) {
  const int reason = whyNotAccessible(root, file, W_OK);
  return reason == ENOENT ? whyFolderNotWritable(root, file, false) : reason;
}

int whyNotReplaceableHere(int root, const char* file) {
  struct stat status {};
  if (fstatat(root, below(root, file), &status, 0) == 0 && !S_ISREG(status.st_mode)) {
    return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
  }
  return whyFolderNotWritable(root, file, true);
}

/// Becomes that user for good.
bool become(uid_t user, gid_t group, const gid_t* groups, std::size_t count) {
  return setgroups(count, groups) == 0 && setgid(group) == 0 && setuid(user) == 0;
}

}  // namespace

ServerFiles serverFiles(const sorvane::Settings& settings) {
  return {settings.installationDirectory + "/Logs/infoserver_log", settings.userPreferenceFile};
}

ServerView::ServerView(const sorvane::SystemProcess* server, const std::string& folder) {
  const uid_t self = geteuid();
  user_ = sorvane::userName(self);
  if (server == nullptr) {
    struct stat status {};
    allowed_ = self == 0 || (stat(folder.c_str(), &status) == 0 && status.st_uid == self);
    return;
  }
  root_ = sorvane::openRootOfProcess(server->number);
  if (!server->owner) {
    allowed_ = false;
  } else if (server->owner->user != self) {
    owner_ = server->owner;
    user_ = sorvane::userName(owner_->user);
    allowed_ = self == 0;
  }
}

int ServerView::whyNotWritable(const std::string& file) const { return ask(Use::written, file); }

int ServerView::whyNotReplaceable(const std::string& file) const {
  return ask(Use::replaced, file);
}

int ServerView::ask(Use use, const std::string& file) const {
  const auto why = [use, root = root_.isOpen() ? root_.number() : AT_FDCWD, path = file.c_str()] {
    return use == Use::written ? whyNotWritableHere(root, path) : whyNotReplaceableHere(root, path);
  };
  if (!owner_) {
    return why();
  }
  const pid_t child = fork();
  if (child == 0) {
    const bool done =
        become(owner_->user, owner_->group, owner_->groups.data(), owner_->groups.size());
    _exit(done ? why() : EPERM);
  }
  int status = 0;
  const auto ended = sorvane::withoutInterruption([&] { return waitpid(child, &status, 0); });
  return ended == child && WIFEXITED(status) ? WEXITSTATUS(status) : ECHILD;
}

}  // namespace sorvctl::doctor
