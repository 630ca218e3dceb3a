// What the system tells of running processes.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <vector>

namespace sorvane::bench {

/// Time on a core of all threads of a process that live, nanoseconds.
[[nodiscard]] std::uint64_t cpuTime(pid_t process);
[[nodiscard]] std::uint64_t cpuTime(const std::vector<pid_t>& processes);
/// A process and its children; itself first.
[[nodiscard]] std::vector<pid_t> familyOf(pid_t process);
/// Memory of all of them together that is no view of a file on a disk, bytes: what they share with
/// one another counts once. Files in memory that they have open count whole, also the part that no
/// process has looked at yet.
[[nodiscard]] std::uint64_t memoryOf(const std::vector<pid_t>& processes);
/// Memory that is the process's own (shared with no other), bytes.
[[nodiscard]] std::uint64_t privateMemory(pid_t process);
/// How often the threads of a process left their core, by themselves or not: an upper bound of how
/// often it was woken.
[[nodiscard]] std::uint64_t contextSwitches(pid_t process);

/// Figures of the whole machine; the difference of two snapshots tells what ran between them.
struct MachineSnapshot {
  std::map<pid_t, std::uint64_t> cpuTimes;  ///< of every process, nanoseconds
  std::uint64_t started = 0;                ///< processes and threads since the machine started
  std::uint64_t stolen = 0;                 ///< time taken by other machines of the host, ns

  [[nodiscard]] static MachineSnapshot now();
};

}  // namespace sorvane::bench
