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

/// Reads until the end, or until `end`. Returns whether the end has come.
bool readToEnd(int descriptor, Clock::time_point end, std::string& text) {
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    pollfd waiting{descriptor, POLLIN, 0};
    if (left.count() <= 0 || withoutInterruption([&] {
                               return poll(&waiting, 1, static_cast<int>(left.count()));
                             }) <= 0) {
      return false;
    }
    char bytes[512];
    const ssize_t came = read(descriptor, bytes, sizeof bytes);
    if (came == 0) {
      return true;
    }
    if (came > 0) {
      text.append(bytes, std::min(static_cast<std::size_t>(came), kMostAnswer - text.size()));
    } else if (errno != EINTR && errno != EAGAIN) {
      return false;
    }
  }
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
  PipeEnds pipe = openPipe();
  if (!pipe.reading.isOpen()) {
    return {{}, "no pipe can be opened for its answer"};
  }
  // Programs do not expect that their output takes nothing for a moment.
  fcntl(pipe.writing.number(), F_SETFL, 0);
  ProgramAnswer answer;
  int process = -1;
  try {
    process = spawnProgram(path, words, pipe.writing.number());
  } catch (const NSException& failure) {
    return {{}, failure.what()};
  }
  pipe.writing.close();
  if (!readToEnd(pipe.reading.number(), end, answer.text) || !endsBy(process, end)) {
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
