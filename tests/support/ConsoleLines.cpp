#include "support/ConsoleLines.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>

#include "platform/Console.h"
#include "support/WaitUntil.h"

namespace sorvane::test {
namespace {

// Never destroyed: servers of earlier tests may write until the process ends.
struct Collected {
  std::mutex mutex;
  std::condition_variable added;
  std::vector<std::string> lines;  // guarded by mutex
};

Collected& collected() {
  static auto* const lines = new Collected;
  return *lines;
}

void collect(std::string_view line) {
  Collected& all = collected();
  const std::lock_guard hold(all.mutex);
  all.lines.emplace_back(line);
  all.added.notify_all();
}

int countIn(const std::vector<std::string>& lines, std::string_view text) {
  return static_cast<int>(std::count_if(lines.begin(), lines.end(), [&](const std::string& line) {
    return line.find(text) != std::string::npos;
  }));
}

}  // namespace

ConsoleLines::ConsoleLines() {
  clear();
  setConsoleSink(collect);
}

ConsoleLines::~ConsoleLines() { setConsoleSink(nullptr); }

std::vector<std::string> ConsoleLines::all() const {
  const std::lock_guard hold(collected().mutex);
  return collected().lines;
}

int ConsoleLines::count(std::string_view text) const {
  const std::lock_guard hold(collected().mutex);
  return countIn(collected().lines, text);
}

bool ConsoleLines::hold(std::string_view text) const {
  std::unique_lock hold(collected().mutex);
  return collected().added.wait_for(hold, kPatience,
                                    [&] { return countIn(collected().lines, text) > 0; });
}

void ConsoleLines::clear() {
  const std::lock_guard hold(collected().mutex);
  collected().lines.clear();
}

int timesIn(std::string_view written, std::string_view text) {
  int count = 0;
  for (std::size_t at = 0; (at = written.find(text, at)) != std::string_view::npos;
       at += text.size()) {
    ++count;
  }
  return count;
}

std::string withoutProgramName(std::string_view written) {
  std::string bare;
  while (!written.empty()) {
    const std::string_view line = written.substr(0, written.find('\n'));
    const std::size_t number = line.find('[');
    const std::size_t end = line.find("]: ");
    EXPECT_TRUE(number < end && end != std::string_view::npos &&
                line.find_first_not_of("0123456789", number + 1) == end)
        << line;
    bare.append(end == std::string_view::npos ? line : line.substr(end + 3)) += '\n';
    written.remove_prefix(std::min(line.size() + 1, written.size()));
  }
  return bare;
}

}  // namespace sorvane::test
