// A lock that one process of this host holds at a time, by the name of the program.
#pragma once

#include <memory>
#include <string>

#include "platform/Descriptor.h"

namespace sorvane {

/// The lock goes with the object, and with the process, however that ends. It works for any user,
/// whoever created the file. A program makes one object: a second one for the same name counts as
/// another holder. One thread at a time.
class VNFileLock {
 public:
  /// A lock object for the program of that name: `<LockDirectory>/<name>.lock`. Nothing is opened
  /// yet.
  [[nodiscard]] static std::shared_ptr<VNFileLock> fileLockWithSorvaneProcessName(
      const std::string& name);

  VNFileLock(const VNFileLock&) = delete;
  VNFileLock& operator=(const VNFileLock&) = delete;

  /// True when this process now holds the lock; false when another holds it, or when the file
  /// cannot be opened (one console line tells why). A missing folder is created. The file is not
  /// followed where it is a link, is readable by all, and holds the process number of the holder
  /// where that one may write. Never waits.
  [[nodiscard]] bool obtainLock();

 private:
  explicit VNFileLock(std::string path);

  const std::string path_;
  Descriptor held_;  // open while this object holds the lock
};

}  // namespace sorvane
