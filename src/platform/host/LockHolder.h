// Who holds a lock of a file.
#pragma once

#include <sys/types.h>

#include <optional>

namespace sorvane {

/// The process that took the lock of a file.
struct LockHolder {
  std::optional<int> process;  ///< none: nobody holds the lock
};

/// Returns who holds the lock that flock(2) takes of the file with these numbers. `written` is the
/// process number in the file: a file system whose stat(2) tells another device than its locks do
/// is recognised by it. Returns nothing if the system does not tell. Implemented in
/// LockHolderLinux.cpp and LockHolderPortable.cpp.
[[nodiscard]] std::optional<LockHolder> holderOfLock(dev_t device, ino_t file,
                                                     std::optional<int> written);

}  // namespace sorvane
