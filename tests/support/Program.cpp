#include "support/Program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>
#include <thread>

namespace sorvane::test {

namespace {

void redirect(int descriptor, const std::filesystem::path& file, int flags) {
  const int opened = open(file.c_str(), flags, 0600);
  if (opened < 0 || dup2(opened, descriptor) < 0) {
    _exit(126);
  }
  close(opened);
}

}  // namespace

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

Program::Program(const std::filesystem::path& file, std::vector<std::string> arguments)
    : Program(file, std::move(arguments), Options{}) {}

Program::Program(const std::filesystem::path& file, std::vector<std::string> arguments,
                 Options options) {
  writeFile(folder_ / "input", options.input);
  arguments.insert(arguments.begin(), file.string());
  std::vector<char*> words;
  for (std::string& argument : arguments) {
    words.push_back(argument.data());
  }
  words.push_back(nullptr);
  process_ = fork();
  if (process_ < 0) {
    throw std::runtime_error("no process could be made");
  }
  if (process_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    redirect(STDIN_FILENO, folder_ / "input", O_RDONLY);
    redirect(STDOUT_FILENO, folder_ / "output", O_WRONLY | O_CREAT | O_APPEND);
    redirect(STDERR_FILENO, folder_ / "errors", O_WRONLY | O_CREAT | O_APPEND);
    if (options.beforeStart) {
      options.beforeStart();
    }
    execv(file.c_str(), words.data());
    _exit(127);
  }
  // Both files exist before anybody asks for them.
  for (const char* name : {"output", "errors"}) {
    close(open((folder_ / name).c_str(), O_WRONLY | O_CREAT, 0600));
  }
}

Program::~Program() {
  if (isRunning()) {
    signal(SIGKILL);
    wait();
  }
}

void Program::signal(int number) const {
  if (!status_) {
    kill(process_, number);
  }
}

bool Program::isRunning() { return !wait(std::chrono::milliseconds(0)); }

std::optional<int> Program::wait(std::chrono::milliseconds limit) {
  const auto ended = [this] {
    int status = 0;
    if (!status_ && waitpid(process_, &status, WNOHANG) == process_) {
      status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    return status_.has_value();
  };
  return waitUntil(ended, limit) ? status_ : std::nullopt;
}

bool Program::prints(const std::string& text) const {
  return waitUntil([&] { return output().find(text) != std::string::npos; });
}

bool Program::complains(const std::string& text) const {
  return waitUntil([&] { return errors().find(text) != std::string::npos; });
}

Outcome run(const std::filesystem::path& file, std::vector<std::string> arguments,
            std::string input) {
  Program program(file, std::move(arguments), {std::move(input), {}});
  const std::optional<int> status = program.wait();
  EXPECT_TRUE(status) << file << " does not end";
  return {status.value_or(-1), program.output(), program.errors()};
}

std::filesystem::path builtProgram(const std::string& name) {
  return std::filesystem::path(SORVANE_BINARY_DIR) / "bin" / name;
}

}  // namespace sorvane::test
