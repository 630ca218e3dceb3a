// A lock that only one process of this host can hold at a time. Each program name has its own.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Descriptor.h"

namespace sorvane {

/// What can be seen of a lock by somebody who does not take it.
struct FileLockLook {
  enum class State : std::uint8_t {
    free,      ///< nobody holds it; the file may be missing
    held,      ///< a process holds it
    unusable,  ///< it cannot be opened, and so not be taken
    unknown,   ///< this user may not read the file, or the system does not tell who holds a lock
  };
  State state = State::unknown;
  std::string path;
  std::optional<int> holder;   ///< the process that took it, if the system tells
  std::optional<int> written;  ///< the process number in the file: that of the last holder
  std::string reason;          ///< why it cannot be opened, in words
};

/// The lock is released when the object is destroyed or the process ends, however it ends. It works
/// for every user, whoever created the file. A program makes only one object: a second one for the
/// same name counts as another holder. One thread at a time.
class VNFileLock {
 public:
  /// Makes the object for the lock `<LockDirectory>/<name>.lock`. Opens nothing yet.
  [[nodiscard]] static std::shared_ptr<VNFileLock> fileLockWithSorvaneProcessName(
      const std::string& name);

  VNFileLock(const VNFileLock&) = delete;
  VNFileLock& operator=(const VNFileLock&) = delete;

  /// Takes the lock. Returns true if this process holds it now. Returns false if another process
  /// holds it, or if the file cannot be opened; then one console line states the reason. Never
  /// waits.
  ///
  /// Creates the file and its folder if they are missing. The file is readable by all. It contains
  /// the process number of the holder, if the holder may write to it. A symbolic link is not
  /// followed.
  [[nodiscard]] bool obtainLock();

  /// Makes the object for a lock that this process holds by a descriptor already: by one that the
  /// program before in this process has opened. Takes over the descriptor. Returns null, and closes
  /// nothing, if it is no such lock.
  [[nodiscard]] static std::shared_ptr<VNFileLock> heldLock(const std::string& name,
                                                            Descriptor held);
  /// Returns by which of the descriptors, which are open, the lock is held; negative: by none.
  [[nodiscard]] static int descriptorOfHeldLock(const std::string& name,
                                                const std::vector<int>& descriptors);
  /// The descriptor by which the lock is held; negative if it is not.
  [[nodiscard]] int descriptor() const { return held_.number(); }

  /// Looks at the lock `<LockDirectory>/<name>.lock` without taking it, not even for a moment: a
  /// program that starts meanwhile gets it. Creates nothing. Any thread.
  [[nodiscard]] static FileLockLook look(const std::string& name);

 private:
  explicit VNFileLock(std::string path);

  const std::string path_;
  Descriptor held_;  // open while this object holds the lock
};

}  // namespace sorvane
