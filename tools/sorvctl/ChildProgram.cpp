#include "sorvctl/ChildProgram.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "sorvctl/Output.h"

extern char** environ;  // NOLINT(readability-redundant-declaration): POSIX leaves it to programs

namespace sorvctl {

namespace {
constexpr int kNotStarted = 127;
constexpr int kEndedBySignal = 128;
constexpr std::chrono::seconds kTimeToEnd{5};
}  // namespace

ChildProgram::ChildProgram(std::vector<std::string> arguments) {
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) {
    pointers.push_back(argument.data());
  }
  pointers.push_back(nullptr);
  const int error =
      posix_spawnp(&process_, pointers[0], nullptr, nullptr, pointers.data(), environ);
  if (error != 0) {
    process_ = -1;
    status_ = kNotStarted;
    printError(arguments[0] + ": " + std::strerror(error));
  }
}

ChildProgram::~ChildProgram() {
  signal(SIGTERM);
  const auto deadline = std::chrono::steady_clock::now() + kTimeToEnd;
  while (!status()) {
    if (std::chrono::steady_clock::now() > deadline) {
      signal(SIGKILL);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

std::optional<int> ChildProgram::status() {
  int ended = 0;
  if (!status_ && waitpid(process_, &ended, WNOHANG) == process_) {
    status_ = WIFEXITED(ended) ? WEXITSTATUS(ended) : kEndedBySignal + WTERMSIG(ended);
  }
  return status_;
}

void ChildProgram::signal(int number) const {
  if (!status_) {
    kill(process_, number);
  }
}

}  // namespace sorvctl
