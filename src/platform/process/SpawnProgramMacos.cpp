#include <crt_externs.h>
#include <signal.h>
#include <spawn.h>
#include <unistd.h>

#include <system_error>

#include "platform/NSException.h"
#include "platform/SpawnProgram.h"

namespace sorvane {

int spawnProgram(const std::string& path, const std::vector<std::string>& words, int output,
                 int errors) {
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    posix_spawn_file_actions_addinherit_np(&files, descriptor);
  }
  if (output >= 0) {
    posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
  }
  if (errors >= 0) {
    posix_spawn_file_actions_adddup2(&files, errors, STDERR_FILENO);
  }
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t signals;
  sigfillset(&signals);
  posix_spawnattr_setsigdefault(&attributes, &signals);
  sigemptyset(&signals);
  posix_spawnattr_setsigmask(&attributes, &signals);
  posix_spawnattr_setflags(
      &attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_CLOEXEC_DEFAULT);
  std::vector<std::string> all = {path};
  all.insert(all.end(), words.begin(), words.end());
  pid_t process = -1;
  const int failure = posix_spawn(&process, path.c_str(), &files, &attributes,
                                  argumentArray(all).data(), *_NSGetEnviron());
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&files);
  if (failure != 0) {
    throw NSException(path + " cannot be launched: " +
                      std::error_code(failure, std::generic_category()).message());
  }
  return process;
}

}  // namespace sorvane
