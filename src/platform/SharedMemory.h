// Memory that outlives the process that writes it.
#pragma once

#include <cstddef>
#include <memory>

#include "platform/Descriptor.h"

namespace sorvane {

/// Memory that a process shares with the processes that are forked from it later, and these with
/// one another. All bytes are zero at first. A page that nobody touches costs nothing.
class SharedMemory {
 public:
  /// Raises std::bad_alloc.
  explicit SharedMemory(std::size_t bytes);
  ~SharedMemory();
  SharedMemory(const SharedMemory&) = delete;
  SharedMemory& operator=(const SharedMemory&) = delete;

  [[nodiscard]] char* bytes() const { return bytes_; }

 private:
  char* bytes_;
  const std::size_t size_;
};

/// A file that lies in memory, has no name, and goes with its last descriptor, and a view of all of
/// it for writing. One thread at a time.
class MemoryFile {
 public:
  /// An empty file. Check `isOpen`.
  MemoryFile();
  /// Closes the descriptor.
  ~MemoryFile();
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  [[nodiscard]] bool isOpen() const { return file_.isOpen(); }
  [[nodiscard]] int descriptor() const { return file_.number(); }

  /// Makes the file longer. The memory is taken now, so that no later write fails. The new bytes
  /// are zero, and the others are elsewhere from now on. Returns false and changes nothing when
  /// there is no memory.
  [[nodiscard]] bool growTo(std::size_t size);
  [[nodiscard]] char* bytes() const { return bytes_; }
  [[nodiscard]] std::size_t size() const { return size_; }

 private:
  Descriptor file_;
  char* bytes_ = nullptr;
  std::size_t size_ = 0;
};

/// Makes a memory file longer and takes the memory for it. Returns false when there is none.
///
/// Implemented in process/MemoryFileLinux.cpp and process/MemoryFileMacos.cpp.
[[nodiscard]] bool growMemoryFile(int descriptor, std::size_t size);

}  // namespace sorvane
