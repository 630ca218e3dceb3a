#include <sys/sysmacros.h>

#include <fstream>
#include <sstream>
#include <string>

#include "platform/host/LockHolder.h"

namespace sorvane {
namespace {

/// A line of /proc/locks: "1: FLOCK  ADVISORY  WRITE 4711 fe:00:1234 0 EOF", the device in
/// hexadecimal digits. Those who wait for a lock stand behind "->": see proc(5).
struct LockEntry {
  std::string kind;
  int process = 0;
  unsigned major = 0;
  unsigned minor = 0;
  unsigned long long file = 0;
};

std::optional<LockEntry> readEntry(const std::string& line) {
  LockEntry entry;
  std::string number;
  std::string skipped;
  char colon = 0;
  std::istringstream words(line);
  words >> number >> entry.kind >> skipped >> skipped >> entry.process >> std::hex >> entry.major >>
      colon >> entry.minor >> colon >> std::dec >> entry.file;
  return words ? std::optional(entry) : std::nullopt;
}

}  // namespace

std::optional<LockHolder> holderOfLock(dev_t device, ino_t file, std::optional<int> written) {
  // The list is not one of one moment: when locks are released while it is read, entries are left
  // out.
  constexpr int kLooks = 3;
  for (int look = 0; look < kLooks; ++look) {
    std::ifstream locks("/proc/locks");
    if (!locks) {
      return std::nullopt;
    }
    std::string line;
    while (std::getline(locks, line)) {
      const auto entry = readEntry(line);
      if (entry && entry->kind == "FLOCK" && entry->file == file &&
          ((entry->major == major(device) && entry->minor == minor(device)) ||
           entry->process == written)) {
        return LockHolder{entry->process};
      }
    }
  }
  return LockHolder{};
}

}  // namespace sorvane
