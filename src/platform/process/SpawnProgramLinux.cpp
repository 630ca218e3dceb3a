#include <signal.h>
#include <spawn.h>
#include <unistd.h>

#include <system_error>

#include "platform/NSException.h"
#include "platform/SpawnProgram.h"

namespace sorvane {
namespace {

/// Keeps the descriptors and signal settings of this process from the new program.
class CleanStart {
 public:
  CleanStart(int output, int errors) {
    posix_spawn_file_actions_init(&files_);
    if (output >= 0) {
      posix_spawn_file_actions_adddup2(&files_, output, STDOUT_FILENO);
    }
    if (errors >= 0) {
      posix_spawn_file_actions_adddup2(&files_, errors, STDERR_FILENO);
    }
    posix_spawn_file_actions_addclosefrom_np(&files_, STDERR_FILENO + 1);
    posix_spawnattr_init(&attributes_);
    sigset_t signals;
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes_, &signals);
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes_, &signals);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  }
  ~CleanStart() {
    posix_spawnattr_destroy(&attributes_);
    posix_spawn_file_actions_destroy(&files_);
  }
  CleanStart(const CleanStart&) = delete;
  CleanStart& operator=(const CleanStart&) = delete;

  [[nodiscard]] const posix_spawn_file_actions_t* files() const { return &files_; }
  [[nodiscard]] const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
  posix_spawn_file_actions_t files_{};
  posix_spawnattr_t attributes_{};
};

}  // namespace

int spawnProgram(const std::string& path, const std::vector<std::string>& words, int output,
                 int errors) {
  const CleanStart start(output, errors);
  std::vector<std::string> all = {path};
  all.insert(all.end(), words.begin(), words.end());
  pid_t process = -1;
  const int failure = posix_spawn(&process, path.c_str(), start.files(), start.attributes(),
                                  argumentArray(all).data(), environ);
  if (failure != 0) {
    throw NSException(path + " cannot be launched: " +
                      std::error_code(failure, std::generic_category()).message());
  }
  return process;
}

}  // namespace sorvane
