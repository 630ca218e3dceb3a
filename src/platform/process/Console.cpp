#include "platform/Console.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <span>
#include <string>
#include <vector>

#include "platform/process/ConsoleStream.h"
#include "platform/process/ProgramName.h"

namespace sorvane {
namespace {

/// Writes lines to standard error and counts those that it could not take.
class ConsoleOutput {
 public:
  void write(std::span<const std::string_view> lines) {
    const std::string prefix = std::string(programName()) + '[' + std::to_string(getpid()) + "]: ";
    const std::lock_guard<std::mutex> hold(mutex_);
    std::string text = torn_ ? "\n" : "";
    if (leftOut_ > 0) {
      text += prefix + std::to_string(leftOut_) + " console lines were left out\n";
    }
    const std::size_t begin = text.size();
    for (const std::string_view line : lines) {
      text.append(prefix).append(line) += '\n';
    }
    const std::size_t taken = StandardErrorStream().write(text);
    if (taken >= begin) {
      leftOut_ = 0;  // that line is written
    }
    std::size_t end = begin;
    for (const std::string_view line : lines) {
      end += prefix.size() + line.size() + 1;
      leftOut_ += end > taken ? 1 : 0;
    }
    torn_ = taken > 0 ? text[taken - 1] != '\n' : torn_;
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

/// Cuts the first line off `text`, together with its line feed.
std::string_view cutLine(std::string_view& text) {
  const std::string_view line = text.substr(0, text.find('\n'));
  text.remove_prefix(std::min(line.size() + 1, text.size()));
  return line;
}

}  // namespace

void consoleLine(std::string_view text) {
  std::vector<std::string_view> lines;
  do {
    lines.push_back(cutLine(text));
  } while (!text.empty() && lines.size() < kMostConsoleLines);
  std::string leftOut;
  if (!text.empty()) {
    const auto count = std::count(text.begin(), text.end(), '\n') + (text.back() == '\n' ? 0 : 1);
    leftOut = std::to_string(count) + " more lines of this text were left out";
    lines.emplace_back(leftOut);
  }
  if (const ConsoleSink sink = consoleSink.load()) {
    std::for_each(lines.begin(), lines.end(), sink);
    return;
  }
  consoleOutput().write(lines);
  writeToSystemLog(lines);
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
