#include "platform/HandOver.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <thread>

#include "platform/NSException.h"
#include "platform/SpawnProgram.h"
#include "platform/WithoutInterruption.h"

extern "C" char** environ;

namespace sorvane {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostAnswer = 4096;
constexpr int kFirstOfOwn = STDERR_FILENO + 1;

/// Adds what has come to the text. Returns whether the end has come.
bool isAtEnd(int descriptor, std::string& text) {
  char bytes[512];
  const ssize_t came = read(descriptor, bytes, sizeof bytes);
  if (came > 0) {
    text.append(bytes, std::min(static_cast<std::size_t>(came), kMostAnswer - text.size()));
  }
  return came == 0 || (came < 0 && errno != EINTR && errno != EAGAIN);
}

/// Reads what is printed to its end, or until `end`. Returns whether the end has come.
bool readToEnd(int output, int errors, Clock::time_point end, ProgramAnswer& answer) {
  pollfd waiting[] = {{output, POLLIN, 0}, {errors, POLLIN, 0}};
  std::string* const texts[] = {&answer.text, &answer.errors};
  while (waiting[0].fd >= 0 || waiting[1].fd >= 0) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    if (left.count() <= 0 || withoutInterruption([&] {
                               return poll(waiting, 2, static_cast<int>(left.count()));
                             }) <= 0) {
      return false;
    }
    for (const int each : {0, 1}) {
      if (waiting[each].revents != 0 && isAtEnd(waiting[each].fd, *texts[each])) {
        waiting[each].fd = -1;  // is waited for no more
      }
    }
  }
  return true;
}

/// Returns whether the process, a child of this one, has ended by then. It is gone if it has.
bool endsBy(int process, Clock::time_point end) {
  constexpr std::chrono::milliseconds kBetweenLooks{5};
  for (;;) {
    // Fails when the system has reaped it.
    if (waitpid(process, nullptr, WNOHANG) != 0) {
      return true;
    }
    if (Clock::now() >= end) {
      return false;
    }
    std::this_thread::sleep_for(kBetweenLooks);
  }
}

void setCloseOnExec(int descriptor, bool closes) {
  fcntl(descriptor, F_SETFD, closes ? FD_CLOEXEC : 0);
}

}  // namespace

ProgramAnswer askProgram(const std::string& path, const std::vector<std::string>& words,
                         std::chrono::milliseconds limit) {
  const Clock::time_point end = Clock::now() + limit;
  PipeEnds output = openPipe();
  PipeEnds errors = openPipe();
  ProgramAnswer answer;
  if (!output.reading.isOpen() || !errors.reading.isOpen()) {
    answer.fault = "no pipe can be opened for its answer";
    return answer;
  }
  // Programs do not expect that their output takes nothing for a moment.
  for (const PipeEnds* const each : {&output, &errors}) {
    fcntl(each->writing.number(), F_SETFL, 0);
  }
  int process = -1;
  try {
    process = spawnProgram(path, words, output.writing.number(), errors.writing.number());
  } catch (const NSException& failure) {
    answer.fault = failure.what();
    return answer;
  }
  output.writing.close();
  errors.writing.close();
  if (!readToEnd(output.reading.number(), errors.reading.number(), end, answer) ||
      !endsBy(process, end)) {
    answer.fault = "it did not answer in time";
    kill(process, SIGKILL);
    withoutInterruption([=] { return waitpid(process, nullptr, 0); });
  }
  return answer;
}

int becomeProgram(const std::string& path, std::vector<std::string> words,
                  const std::vector<std::string>& variables, const std::vector<int>& descriptors) {
  std::vector<std::string> environment;
  for (char** each = environ; *each != nullptr; ++each) {
    environment.emplace_back(*each);
  }
  environment.insert(environment.end(), variables.begin(), variables.end());
  const std::vector<char*> arguments = argumentArray(words);
  const std::vector<char*> values = argumentArray(environment);
  leaveOpenInNextProgram(descriptors);
  execve(path.c_str(), arguments.data(), values.data());
  const int reason = errno;
  for (const int each : descriptors) {
    setCloseOnExec(each, true);
  }
  return reason;
}

void leaveOpenInNextProgram(const std::vector<int>& descriptors) {
  for (const int each : descriptors) {
    setCloseOnExec(each, false);
  }
}

void closeDescriptorsWhenReplaced() {
  std::error_code failure;
  for (const auto& entry : std::filesystem::directory_iterator("/dev/fd", failure)) {
    const std::string name = entry.path().filename().string();
    int number = 0;
    std::from_chars(name.data(), name.data() + name.size(), number);
    if (number >= kFirstOfOwn) {
      setCloseOnExec(number, true);
    }
  }
}

MappedFile::MappedFile(int descriptor) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0 || status.st_size <= 0) {
    return;
  }
  const auto bytes = static_cast<std::size_t>(status.st_size);
  void* const begin = mmap(nullptr, bytes, PROT_READ, MAP_PRIVATE, descriptor, 0);
  if (begin != MAP_FAILED) {
    bytes_ = {static_cast<const char*>(begin), bytes};
  }
}

MappedFile::~MappedFile() {
  if (!bytes_.empty()) {
    munmap(const_cast<char*>(bytes_.data()), bytes_.size());
  }
}

}  // namespace sorvane
