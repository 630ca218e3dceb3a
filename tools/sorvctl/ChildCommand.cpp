#include "sorvctl/ChildCommand.h"

#include <fmt/format.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdio>
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

ChildCommand::ChildCommand(std::vector<std::string> words) {
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  const int error =
      posix_spawnp(&process_, arguments[0], nullptr, nullptr, arguments.data(), environ);
  if (error != 0) {
    process_ = -1;
    status_ = kNotStarted;
    fmt::print(stderr, "sorvctl: {}: {}\n", escaped(words[0]), std::strerror(error));
  }
}

ChildCommand::~ChildCommand() {
  signal(SIGTERM);
  const auto deadline = std::chrono::steady_clock::now() + kTimeToEnd;
  while (!status()) {
    if (std::chrono::steady_clock::now() > deadline) {
      signal(SIGKILL);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

std::optional<int> ChildCommand::status() {
  int ended = 0;
  if (!status_ && waitpid(process_, &ended, WNOHANG) == process_) {
    status_ = WIFEXITED(ended) ? WEXITSTATUS(ended) : kEndedBySignal + WTERMSIG(ended);
  }
  return status_;
}

void ChildCommand::signal(int number) const {
  if (!status_) {
    kill(process_, number);
  }
}

}  // namespace sorvctl
