#include "sorvctl/Progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include "sorvctl/Terminal.h"
#include "sorvctl/TerminalText.h"

namespace sorvctl {

namespace {

constexpr std::chrono::seconds kBetweenLines{1};
constexpr std::string_view kErasedLine = "\r\x1b[K";

std::atomic<bool> isOff = false;

bool canShowLines() {
  const char* const terminal = std::getenv("TERM");
  return isatty(STDERR_FILENO) != 0 && terminal != nullptr && std::string_view(terminal) != "dumb";
}

/// The line at the end of the terminal, and the thread that draws it.
class Line {
 public:
  /// False when the line is in use, and when there is no thread left for it.
  bool begin(std::string text) {
    const std::lock_guard lock(mutex_);
    if (inUse_) {
      return false;
    }
    text_ = std::move(text);
    ended_ = false;
    try {
      thread_ = std::thread([this] { run(); });
    } catch (const std::system_error&) {
      return false;
    }
    inUse_ = true;
    return true;
  }

  void end() {
    {
      const std::lock_guard lock(mutex_);
      ended_ = true;
    }
    wake_.notify_all();
    thread_.join();
    hide();
    const std::lock_guard lock(mutex_);
    inUse_ = false;
  }

  void hide() {
    const std::lock_guard lock(mutex_);
    if (std::exchange(isOnScreen_, false)) {
      fmt::print(stderr, "{}", kErasedLine);
    }
  }

 private:
  void run() {
    const auto begin = std::chrono::steady_clock::now();
    std::unique_lock lock(mutex_);
    for (int seconds = 1;
         !wake_.wait_until(lock, begin + seconds * kBetweenLines, [this] { return ended_; });
         ++seconds) {
      const std::string line = fmt::format("{} ({} s)", escaped(text_), seconds);
      const std::size_t width = terminalWidth(STDERR_FILENO).value_or(line.size() + 1);
      // The last column stays free: a cursor behind it could be in the next line.
      fmt::print(stderr, "{}{}", kErasedLine, cutToWidth(line, width - 1));
      isOnScreen_ = true;
    }
  }

  std::mutex mutex_;
  std::condition_variable wake_;  // when `ended_` has changed
  std::string text_;              // changes while no thread runs
  std::thread thread_;            // belongs to the one who uses the line
  // Guarded by mutex_.
  bool inUse_ = false;
  bool ended_ = false;
  bool isOnScreen_ = false;
};

/// Never destroyed: `hide` may be called until the process ends.
Line& line() {
  static auto* const line = new Line;
  return *line;
}

}  // namespace

Progress::Progress(std::string text)
    : shows_(!isOff && canShowLines() && line().begin(std::move(text))) {}

Progress::~Progress() {
  if (shows_) {
    line().end();
  }
}

void Progress::turnOff() { isOff = true; }

void Progress::hide() { line().hide(); }

}  // namespace sorvctl
