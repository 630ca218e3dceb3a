#include "driver/ProcessFigures.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace sorvane::bench {
namespace {

namespace fs = std::filesystem;

fs::path folderOf(pid_t process) { return fs::path("/proc") / std::to_string(process); }

/// The sum of the numbers that follow these words at the start of a line.
std::uint64_t sumOf(const fs::path& file, std::initializer_list<const char*> words) {
  std::ifstream in(file);
  std::uint64_t sum = 0;
  for (std::string line; std::getline(in, line);) {
    std::istringstream fields(line);
    std::string word;
    std::uint64_t number = 0;
    fields >> word >> number;
    for (const char* const wanted : words) {
      sum += word == wanted ? number : 0;
    }
  }
  return sum;
}

/// Calls `use` with the folder of each thread; threads may end meanwhile.
template <typename Use>
void forEachThread(const fs::path& process, Use&& use) {
  std::error_code gone;
  for (fs::directory_iterator thread(process / "task", gone), end; !gone && thread != end;
       thread.increment(gone)) {
    use(thread->path());
  }
}

std::uint64_t cpuTimeIn(const fs::path& process) {
  std::uint64_t sum = 0;
  forEachThread(process, [&](const fs::path& thread) {
    std::uint64_t onCore = 0;
    std::ifstream(thread / "schedstat") >> onCore;
    sum += onCore;
  });
  return sum;
}

}  // namespace

std::uint64_t cpuTime(pid_t process) { return cpuTimeIn(folderOf(process)); }

std::uint64_t privateMemory(pid_t process) {
  return 1024 * sumOf(folderOf(process) / "smaps_rollup", {"Private_Clean:", "Private_Dirty:"});
}

std::uint64_t contextSwitches(pid_t process) {
  std::uint64_t sum = 0;
  forEachThread(folderOf(process), [&](const fs::path& thread) {
    sum += sumOf(thread / "status", {"voluntary_ctxt_switches:", "nonvoluntary_ctxt_switches:"});
  });
  return sum;
}

MachineSnapshot MachineSnapshot::now() {
  MachineSnapshot look;
  for (const fs::directory_entry& entry : fs::directory_iterator("/proc")) {
    const std::string name = entry.path().filename();
    if (name.find_first_not_of("0123456789") == std::string::npos) {
      look.cpuTimes[std::stoi(name)] = cpuTimeIn(entry.path());
    }
  }
  look.started = sumOf("/proc/stat", {"processes"});
  std::ifstream stat("/proc/stat");
  std::string word;
  std::uint64_t ticks[8] = {};  // user nice system idle iowait irq softirq steal
  stat >> word;
  for (std::uint64_t& field : ticks) {
    stat >> field;
  }
  look.stolen = ticks[7] * 1'000'000'000 / static_cast<std::uint64_t>(::sysconf(_SC_CLK_TCK));
  return look;
}

}  // namespace sorvane::bench
