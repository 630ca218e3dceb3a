// A name server whose system calls a test counts, and lets fail.
#pragma once

#include <cstdint>
#include <filesystem>

#include "faults/preload/FaultTable.h"
#include "integration/Daemon.h"

namespace sorvane::test {

/// One call that fails.
struct Fault {
  Call call;
  std::uint64_t number;  ///< which call of that kind, from 1
  int error;             ///< an error number, or what FaultTable.h has in the place of one
};

/// A daemon with the libraries of preload/. They stay quiet until calls are counted.
class FailingDaemon {
 public:
  FailingDaemon();
  ~FailingDaemon();
  FailingDaemon(const FailingDaemon&) = delete;
  FailingDaemon& operator=(const FailingDaemon&) = delete;

  [[nodiscard]] Daemon& server() { return server_; }
  [[nodiscard]] const Daemon& server() const { return server_; }
  /// Starts it and waits until it answers a ping and its start is over. May be called again when it
  /// has ended.
  void start();

  /// Counts all calls from now on, each kind from 0.
  void countCalls();
  /// The same, and lets one of them fail.
  void countCallsAndFail(const Fault& fault);
  void stopCounting();

  /// How many calls of a kind were counted.
  [[nodiscard]] std::uint64_t calls(Call call) const;
  /// True when the call that was to fail has failed.
  [[nodiscard]] bool hasFailed() const;

 private:
  const TemporaryFolder folder_;
  const std::filesystem::path file_ = folder_ / "faults";
  FaultTable* table_ = nullptr;
  Daemon server_;
};

/// Whether large blocks of memory can be counted: an allocator of a sanitizer lets no other stand
/// before it.
[[nodiscard]] bool memoryCanFail();

}  // namespace sorvane::test
