// Everything that clients do, for a long time, against the real name server: does it stay as it is?
//
//   soak SECONDS [latency]     with "latency" the waiting for lookups is judged, too
//
// Prints a line a minute, or ten in all when the time is short. Ends with status 0 when
//   - every reply was right,
//   - at the end the name server has no more descriptors than at the start, at rest both times,
//   - its memory has grown by no more than the bound, and
//   - lookups take no longer in the last third of the time than in the first.
#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "integration/Daemon.h"
#include "integration/DaemonProcess.h"
#include "soak/Work.h"
#include "support/TestedBuild.h"
#include "support/WaitUntil.h"

namespace sorvane::soak {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

// What the allocator and the tables may still take after the warming up.
constexpr long kMostGrowthKibibytes = 8 * 1024;
// Of the medians of the last and the first third of the time; the machine has other work as well.
constexpr double kMostSlowdown = 1.5;
constexpr double kTooShortToTell = 100;  // microseconds

// A sanitizer keeps freed memory.
const bool kMemoryIsJudged = test::areTestedWithoutSanitizers();

double slowest(std::vector<double>& times) {
  if (times.empty()) {
    return 0;
  }
  const auto hundredth = times.begin() + static_cast<std::ptrdiff_t>(times.size() * 99 / 100);
  std::nth_element(times.begin(), hundredth, times.end());
  return *hundredth;
}

double medianOf(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// The name server's figures.
struct Figures {
  int descriptors;
  long kibibytes;
};

class Soak {
 public:
  explicit Soak(seconds time) : time_(time) {}

  int run(bool latencyIsJudged);

 private:
  [[nodiscard]] pid_t startServer() {
    server_.start();
    return server_.process();
  }
  [[nodiscard]] Figures now() const {
    return {process_.openDescriptors(), process_.residentKibibytes()};
  }
  /// The figures once the ends of the clients' connections have been dealt with.
  [[nodiscard]] Figures atRest() const;
  /// Lets the load run, and prints and keeps the p99 of each interval.
  void soak(Load& load);
  void judge(bool well, const std::string& what);

  const seconds time_;
  test::Daemon server_;
  const test::DaemonProcess process_{startServer()};
  std::vector<double> p99s_;  // microseconds
  std::size_t lookups_ = 0;
  Scene scene_{server_.basePort()};
  int failures_ = 0;
};

Figures Soak::atRest() const {
  constexpr int kSameInARow = 50;
  Figures figures = now();
  int same = 0;
  (void)test::waitUntil([&] {
    const Figures next = now();
    same = next.descriptors == figures.descriptors ? same + 1 : 0;
    figures = next;
    return same == kSameInARow;
  });
  return figures;
}

void Soak::judge(bool well, const std::string& what) {
  std::printf("%-6s %s\n", well ? "ok" : "FAILED", what.c_str());
  failures_ += well ? 0 : 1;
}

void Soak::soak(Load& load) {
  const milliseconds interval =
      std::min<milliseconds>(milliseconds(time_) / 10, std::chrono::minutes(1));
  const Clock::time_point begin = Clock::now();
  (void)scene_.takeTimes();
  load.start();
  for (Clock::time_point next = begin + interval;
       next <= begin + time_ && scene_.complaint().empty(); next += interval) {
    std::this_thread::sleep_until(next);
    std::vector<double> times = scene_.takeTimes();
    const Figures figures = now();
    lookups_ += times.size();
    p99s_.push_back(slowest(times));
    std::printf("%7.1f s  %6d descriptors  %8ld KiB  %8zu lookups  p99 %8.1f us\n",
                std::chrono::duration<double>(next - begin).count(), figures.descriptors,
                figures.kibibytes, times.size(), p99s_.back());
  }
  load.stop();
}

int Soak::run(bool latencyIsJudged) {
  scene_.set();
  Load load(scene_);
  load.start();  // warms up: the caches, the allocator, the file of the preferences
  std::this_thread::sleep_for(std::max<milliseconds>(milliseconds(time_) / 20, seconds(2)));
  load.stop();
  const Figures before = atRest();
  soak(load);
  const bool descriptorsAreBack =
      test::waitUntil([&] { return now().descriptors <= before.descriptors; });
  const Figures after = atRest();

  const std::vector<long> steps = load.steps();
  for (std::size_t i = 0; i < steps.size(); ++i) {
    std::printf("%10ld  %s\n", steps[i], std::string(works()[i].what).c_str());
  }
  judge(scene_.complaint().empty(), "all replies were right " + scene_.complaint());
  judge(descriptorsAreBack, "descriptors: " + std::to_string(before.descriptors) + " before, " +
                                std::to_string(after.descriptors) + " after");
  const std::string memory = "memory: " + std::to_string(before.kibibytes) + " KiB before, " +
                             std::to_string(after.kibibytes) + " KiB after";
  if (kMemoryIsJudged) {
    judge(after.kibibytes - before.kibibytes <= kMostGrowthKibibytes, memory);
  }
  if (p99s_.empty()) {
    return 1;
  }
  const auto third = static_cast<std::ptrdiff_t>((p99s_.size() + 2) / 3);
  const double first = medianOf({p99s_.begin(), p99s_.begin() + third});
  const double last = medianOf({p99s_.end() - third, p99s_.end()});
  char slowness[200];
  std::snprintf(slowness, sizeof slowness, "p99 of %zu lookups: %.1f us at first, %.1f us at last",
                lookups_, first, last);
  if (latencyIsJudged) {
    judge(last <= std::max(kMostSlowdown * first, kTooShortToTell), slowness);
  } else {
    std::printf("       %s\n", slowness);
  }
  return failures_ == 0 ? 0 : 1;
}

}  // namespace
}  // namespace sorvane::soak

int main(int argc, char** argv) {
  const std::vector<std::string_view> words(argv + 1, argv + argc);
  int seconds = 0;
  if (!words.empty()) {
    const char* const end = words[0].data() + words[0].size();
    const auto [stop, error] = std::from_chars(words[0].data(), end, seconds);
    seconds = error == std::errc() && stop == end ? seconds : 0;
  }
  const bool latency = words.size() == 2 && words[1] == "latency";
  if (seconds < 1 || (words.size() > 1 && !latency)) {
    std::fputs("usage: soak SECONDS [latency]\n", stderr);
    return 2;
  }
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  return sorvane::soak::Soak(std::chrono::seconds(seconds)).run(latency);
}
