#include "driver/ProcessFigures.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

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

/// The parent of a process; 0 when it has ended.
pid_t parentOf(const fs::path& process) {
  std::string text;
  std::getline(std::ifstream(process / "stat"), text, '\0');
  const std::size_t end = text.rfind(')');  // of the program's name
  char state = 0;
  pid_t parent = 0;
  if (end != std::string::npos) {
    std::istringstream(text.substr(end + 1)) >> state >> parent;
  }
  return parent;
}

constexpr std::string_view kMemoryFile = "/memfd:";
constexpr std::uint64_t kBlockBytes = 512;  // the unit of st_blocks

/// How much of the memory files that a process looks at counts as its memory.
std::uint64_t viewsOfMemoryFiles(const fs::path& process) {
  std::ifstream in(process / "smaps");
  std::uint64_t sum = 0;
  bool ofMemoryFile = false;
  for (std::string line; std::getline(in, line);) {
    std::istringstream fields(line);
    std::string word;
    fields >> word;
    if (!word.ends_with(':')) {  // the head of the next view
      ofMemoryFile = line.find(kMemoryFile) != std::string::npos;
    } else if (ofMemoryFile && word == "Pss:") {
      std::uint64_t number = 0;
      fields >> number;
      sum += 1024 * number;
    }
  }
  return sum;
}

/// Adds the memory files that a process has open, by their numbers.
void addMemoryFiles(const fs::path& process, std::map<ino_t, std::uint64_t>& files) {
  for (const fs::directory_entry& entry : fs::directory_iterator(process / "fd")) {
    std::error_code gone;
    struct stat status {};
    if (fs::read_symlink(entry.path(), gone).string().starts_with(kMemoryFile) &&
        ::stat(entry.path().c_str(), &status) == 0) {
      files[status.st_ino] = kBlockBytes * static_cast<std::uint64_t>(status.st_blocks);
    }
  }
}

}  // namespace

std::uint64_t cpuTime(pid_t process) { return cpuTimeIn(folderOf(process)); }

std::uint64_t cpuTime(const std::vector<pid_t>& processes) {
  std::uint64_t sum = 0;
  for (const pid_t process : processes) {
    sum += cpuTime(process);
  }
  return sum;
}

std::vector<pid_t> familyOf(pid_t process) {
  std::vector<pid_t> family = {process};
  for (const fs::directory_entry& entry : fs::directory_iterator("/proc")) {
    const std::string name = entry.path().filename();
    if (name.find_first_not_of("0123456789") == std::string::npos &&
        parentOf(entry.path()) == process) {
      family.push_back(std::stoi(name));
    }
  }
  return family;
}

std::uint64_t memoryOf(const std::vector<pid_t>& processes) {
  std::uint64_t sum = 0;
  std::map<ino_t, std::uint64_t> files;
  for (const pid_t process : processes) {
    const fs::path folder = folderOf(process);
    sum += 1024 * sumOf(folder / "smaps_rollup", {"Pss_Anon:", "Pss_Shmem:"});
    sum -= viewsOfMemoryFiles(folder);
    addMemoryFiles(folder, files);
  }
  for (const auto& [number, bytes] : files) {
    sum += bytes;
  }
  return sum;
}

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
