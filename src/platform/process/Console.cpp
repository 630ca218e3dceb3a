#include "platform/Console.h"

#include <unistd.h>

#include <atomic>
#include <string>

#include "platform/process/ConsoleStream.h"
#include "platform/process/ProgramName.h"

namespace sorvane {
namespace {

/// Writes lines to standard error and counts those that it could not take.
class ConsoleOutput {
 public:
  void write(std::string_view line) {
    const std::string prefix = std::string(programName()) + '[' + std::to_string(getpid()) + "]: ";
    const std::lock_guard<std::mutex> hold(mutex_);
    std::string text = torn_ ? "\n" : "";
    if (leftOut_ > 0) {
      text += prefix + std::to_string(leftOut_) + " console lines were left out\n";
    }
    text.append(prefix).append(line) += '\n';
    const std::size_t taken = StandardErrorStream().write(text);
    if (taken == text.size()) {
      leftOut_ = 0;
      torn_ = false;
    } else {
      ++leftOut_;
      torn_ = taken > 0 ? text[taken - 1] != '\n' : torn_;
    }
  }

 private:
  std::mutex mutex_;
  long long leftOut_ = 0;
  bool torn_ = false;  // only a part of a line was taken: the next one begins with a line feed
};

// Never destroyed: a thread may write a line while the process ends.
ConsoleOutput& consoleOutput() {
  static auto* output = new ConsoleOutput;
  return *output;
}

std::atomic<ConsoleSink> consoleSink{nullptr};

void writeLine(std::string_view line) {
  if (const ConsoleSink sink = consoleSink.load()) {
    sink(line);
    return;
  }
  consoleOutput().write(line);
  writeToSystemLog(std::string(line).c_str());
}

}  // namespace

void consoleLine(std::string_view text) {
  for (;;) {
    const std::size_t end = text.find('\n');
    writeLine(text.substr(0, end));
    if (end == std::string_view::npos || end + 1 == text.size()) {
      return;
    }
    text.remove_prefix(end + 1);
  }
}

void setConsoleSink(ConsoleSink sink) { consoleSink.store(sink); }

void ConsoleRateLimit::line(std::string_view text, Clock::time_point now) {
  long long leftOutBefore = 0;
  {
    const std::lock_guard<std::mutex> hold(mutex_);
    if (written_ == 0 || now - periodStart_ >= std::chrono::seconds(kSeconds)) {
      periodStart_ = now;
      written_ = 0;
      leftOutBefore = leftOut_;
      leftOut_ = 0;
    }
    if (written_ == kBurst) {
      ++leftOut_;
      return;
    }
    ++written_;
  }
  if (leftOutBefore > 0) {
    consoleLine(std::to_string(leftOutBefore) + " lines like the next one were left out");
  }
  consoleLine(text);
}

}  // namespace sorvane
