#include "driver/Child.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <sstream>

#include "driver/Socket.h"

namespace sorvane::bench {
namespace {

/// Forks; the child runs `work` and ends.
pid_t start(const std::vector<int>& cores, const std::function<void()>& work) {
  const pid_t driver = ::getpid();
  const pid_t process = ::fork();
  if (process < 0) {
    throwSystemError("fork");
  }
  if (process > 0) {
    return process;
  }
  try {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() == driver) {
      stayOn(cores);
      work();
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bench: %s\n", error.what());
  }
  ::_exit(1);
}

void execute(const std::vector<std::string>& words, const std::filesystem::path& errors) {
  std::vector<char*> arguments;
  for (const std::string& word : words) {
    arguments.push_back(const_cast<char*>(word.c_str()));
  }
  arguments.push_back(nullptr);
  const int nowhere = ::open("/dev/null", O_RDWR);
  const int file = ::open(errors.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
  if (nowhere < 0 || file < 0 || ::dup2(nowhere, 0) < 0 || ::dup2(nowhere, 1) < 0 ||
      ::dup2(file, 2) < 0) {
    throwSystemError("redirecting the output of " + words[0]);
  }
  ::execv(arguments[0], arguments.data());
  throwSystemError("starting " + words[0]);
}

}  // namespace

std::vector<int> availableCores() {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (::sched_getaffinity(0, sizeof set, &set) != 0) {
    throwSystemError("sched_getaffinity");
  }
  std::vector<int> cores;
  for (int core = 0; core < CPU_SETSIZE; ++core) {
    if (CPU_ISSET(core, &set)) {
      cores.push_back(core);
    }
  }
  return cores;
}

void stayOn(const std::vector<int>& cores) {
  cpu_set_t set;
  CPU_ZERO(&set);
  for (const int core : cores) {
    CPU_SET(core, &set);
  }
  if (::sched_setaffinity(0, sizeof set, &set) != 0) {
    throwSystemError("sched_setaffinity");
  }
}

Child::Child(const std::vector<int>& cores, const std::vector<std::string>& words,
             const std::filesystem::path& errors)
    : process_(start(cores, [&] { execute(words, errors); })) {}

Child::Child(const std::vector<int>& cores, const std::function<void()>& work)
    : process_(start(cores, work)) {}

Child::~Child() {
  ::kill(process_, SIGKILL);
  ::waitpid(process_, nullptr, 0);
}

bool Child::isRunning() const {
  siginfo_t ended{};
  return ::waitid(P_PID, static_cast<id_t>(process_), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         ended.si_pid == 0;
}

void Child::waitForItsEnd() const {
  siginfo_t ended{};
  while (::waitid(P_PID, static_cast<id_t>(process_), &ended, WEXITED | WNOWAIT) != 0 &&
         errno == EINTR) {
  }
}

std::filesystem::path installedProgram(const std::string& name) {
  const char* const path = std::getenv("PATH");
  std::istringstream folders(path != nullptr ? path : "/usr/bin");
  for (std::string folder; std::getline(folders, folder, ':');) {
    const std::filesystem::path file = std::filesystem::path(folder) / name;
    if (::access(file.c_str(), X_OK) == 0) {
      return file;
    }
  }
  return {};
}

}  // namespace sorvane::bench
