// What a test and a library in a name server under test share: how often each kind of call was
// made, and which call is to fail. The library maps the file that FAULT_TABLE names.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace sorvane::test {

/// The kinds of calls that are counted and can fail.
enum class Call : std::uint8_t {
  accept,
  receive,
  send,            ///< of bytes in one place
  sendGathered,    ///< of bytes in several places
  wait,            ///< for what is ready
  watch,           ///< to begin watching a descriptor
  watchOtherwise,  ///< to watch a descriptor for something else
  unwatch,
  wake,        ///< a write to what is no plain file
  takeWakeUp,  ///< a read from what is no plain file
  peerName,
  shutDown,
  stat,  // from here on calls for files, and memory
  linkStatus,
  open,
  openStream,
  statusOfOpen,
  lock,
  write,  ///< to a plain file
  setMode,
  flush,
  rename,
  largeMemory,  ///< at least `kLargeBytes`
  count,        ///< how many kinds there are
};
inline constexpr std::size_t kCalls = static_cast<std::size_t>(Call::count);
inline constexpr std::size_t kLargeBytes = 16384;

// What may stand in the place of an error number.
inline constexpr int kShort = -1;         ///< succeeds, with fewer bytes than it might
inline constexpr int kKilledBefore = -2;  ///< SIGKILL instead of the call
inline constexpr int kKilledAfter = -3;   ///< SIGKILL as soon as the call is done

struct FaultTable {
  std::atomic<bool> counts;                              ///< calls are counted and may fail
  std::array<std::atomic<std::uint64_t>, kCalls> calls;  ///< how many of each kind were made
  std::atomic<Call> call;                                ///< which kind is to fail
  std::atomic<std::uint64_t> number;  ///< which call of that kind, from 1; 0: none
  std::atomic<int> error;             ///< what it fails with
  std::atomic<bool> struck;           ///< it has failed
};

}  // namespace sorvane::test
