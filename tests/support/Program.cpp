#include "support/Program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "support/TestedBuild.h"

namespace sorvane::test {

namespace {

void redirect(int descriptor, const std::filesystem::path& file, int flags) {
  const int opened = open(file.c_str(), flags, 0600);
  if (opened < 0 || dup2(opened, descriptor) < 0) {
    _exit(126);
  }
  close(opened);
}

[[noreturn]] void become(const std::filesystem::path& file, std::vector<std::string> arguments,
                         const Program::Options& options, const std::filesystem::path& folder) {
  arguments.insert(arguments.begin(), file.string());
  std::vector<char*> words;
  for (std::string& argument : arguments) {
    words.push_back(argument.data());
  }
  words.push_back(nullptr);
  redirect(STDIN_FILENO, folder / "input", O_RDONLY);
  redirect(STDOUT_FILENO, folder / "output", O_WRONLY | O_APPEND);
  redirect(STDERR_FILENO, folder / "errors", O_WRONLY | O_APPEND);
  if (options.beforeStart) {
    options.beforeStart();
  }
  execv(file.c_str(), words.data());
  _exit(127);
}

}  // namespace

Program::Program(const std::filesystem::path& file, std::vector<std::string> arguments)
    : Program(file, std::move(arguments), Options{}) {}

Program::Program(const std::filesystem::path& file, std::vector<std::string> arguments,
                 Options options)
    : folder_(options.input),
      process_([&] { become(file, std::move(arguments), options, folder_.path()); }) {}

Program::Streams::Streams(const std::string& input) {
  writeFile(*this / "input", input);
  writeFile(*this / "output", "");
  writeFile(*this / "errors", "");
}

bool Program::isRunning() { return !wait(std::chrono::milliseconds(0)); }

std::optional<int> Program::wait(std::chrono::milliseconds limit) {
  const std::optional<int> status = process_.wait(limit);
  return status && *status < 0 ? 128 - *status : status;
}

bool Program::prints(const std::string& text, int times) const {
  return comesToHold(folder_ / "output", text, times);
}

bool Program::complains(const std::string& text, int times) const {
  return comesToHold(folder_ / "errors", text, times);
}

Outcome run(const std::filesystem::path& file, std::vector<std::string> arguments,
            std::string input) {
  Program program(file, std::move(arguments), {std::move(input), {}});
  const std::optional<int> status = program.wait();
  EXPECT_TRUE(status) << file << " does not end";
  return {status.value_or(-1), program.output(), program.errors()};
}

std::filesystem::path builtProgram(const std::string& name) { return testedBuild() / "bin" / name; }

}  // namespace sorvane::test
