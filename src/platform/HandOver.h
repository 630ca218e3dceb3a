// Handing the process over to another program, which takes the place of this one in it.
#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Descriptor.h"

namespace sorvane {

/// What a program has printed before it ended.
struct ProgramAnswer {
  std::string text;    ///< on standard output: the first 4 KiB
  std::string errors;  ///< on standard error: the first 4 KiB
  std::string fault;   ///< why there is no whole answer, in words; empty if there is
};

/// Starts the program and reads what it prints, until it has ended. One that takes longer than
/// `limit` is ended. A program that it has started itself and that goes on is not waited for any
/// longer than that either. Any thread.
[[nodiscard]] ProgramAnswer askProgram(const std::string& path,
                                       const std::vector<std::string>& words,
                                       std::chrono::milliseconds limit);

/// Opens a file that lies in memory, has no name, and goes with its last descriptor. Returns none
/// on failure and sets `errno`. Programs that this process starts do not inherit it.
///
/// Implemented in process/MemoryFileLinux.cpp and process/MemoryFileMacos.cpp.
[[nodiscard]] Descriptor openMemoryFile();

/// Makes this process run another program. Its arguments are `words`, the first of which stands for
/// its name; its environment has `variables` (NAME=VALUE) in addition to those of this process. It
/// inherits `descriptors`, and others only if they are not closed when a program is started. Signal
/// masks and ignored signals stay. All other threads end. Returns only on failure, with the reason;
/// everything is as before then. Call it while no other thread starts a program.
[[nodiscard]] int becomeProgram(const std::string& path, std::vector<std::string> words,
                                const std::vector<std::string>& variables,
                                const std::vector<int>& descriptors);

/// Lets the next program that takes the place of this one, or of a process that shares the table of
/// descriptors with it, inherit these, too.
void leaveOpenInNextProgram(const std::vector<int>& descriptors);

/// Closes all descriptors but the standard ones when the process next runs another program.
void closeDescriptorsWhenReplaced();

/// The bytes of an open file, for reading. Empty if they cannot be had. One thread at a time.
class MappedFile {
 public:
  /// Closes the descriptor.
  explicit MappedFile(Descriptor file) : MappedFile(file.number()) {}
  /// Leaves the descriptor open. What the file had not at this moment is not among the bytes.
  explicit MappedFile(int descriptor);
  ~MappedFile();
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;

  [[nodiscard]] std::string_view bytes() const { return bytes_; }

 private:
  std::string_view bytes_;
};

}  // namespace sorvane
