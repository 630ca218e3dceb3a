// A lock that only one process of this host can hold at a time. Each program name has its own.
#pragma once

#include <memory>
#include <string>

#include "platform/Descriptor.h"

namespace sorvane {

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

 private:
  explicit VNFileLock(std::string path);

  const std::string path_;
  Descriptor held_;  // open while this object holds the lock
};

}  // namespace sorvane
