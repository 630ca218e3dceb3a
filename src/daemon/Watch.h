// Two processes in place of one: one serves, and one keeps watch and makes another one when the
// serving one dies.
//
// The process that was started keeps watch. It has the number that the service manager and the
// process lock know, one thread, and nothing to do. The serving one is its child. Both share the
// descriptors, so that a death closes no connection: the one that comes next finds them open. It
// starts with the memory that the watching process had at the first start.
//
// The watching process is also the one that another program takes the place of. For that the
// serving one leaves what it keeps in a file and ends.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "platform/SharedMemory.h"

namespace sorvane {

/// What a serving process leaves to the watching one: what it wishes to be done when it has ended
/// by itself, and whether it still needs what was handed over to it. Both share it. Without a wish,
/// the watching one ends, too.
class LastWish {
 public:
  LastWish() : memory_(sizeof(Shared)) {}

  /// Ends this process, so that another one starts anew.
  [[noreturn]] void startAnew();
  /// Ends this process, so that another program takes the place of the watching one and goes on
  /// with what is kept in that file. The descriptor must stay open.
  [[noreturn]] void handOver(int memoryFile);
  /// Closes the file that was handed over to this process, if there was one. Until then, the next
  /// process gets it if this one dies.
  void letGoOfHandedOver();

 private:
  friend class WatchedServing;
  static constexpr int kNone = 0;
  static constexpr int kStartAnew = -1;
  [[noreturn]] void endWith(int wish);
  struct Shared {
    std::atomic<int> wish;        // the descriptor of the file and 1 if something is handed over
    std::atomic<int> handedOver;  // the descriptor of the file and 1 until the process lets it go
  };
  [[nodiscard]] Shared& shared() const { return *reinterpret_cast<Shared*>(memory_.bytes()); }

  SharedMemory memory_;
};

/// How a serving process comes to be.
struct ServingStart {
  /// How many serving processes have died in the last minute.
  int deaths = 0;
  /// True: what the dead one had open is still open, and this one is to go on with it or close it.
  /// False: there is nothing of an earlier one.
  bool goesOn = false;
  /// The descriptors that were open before the first start, without what was handed over. All
  /// others are the dead one's. Lowest first; empty while nobody keeps watch.
  std::vector<int> ownDescriptors;
  /// The file that this one is to go on with: the program before has handed it over, or an earlier
  /// serving process has, which this program cannot pass on. If `goesOn`, one that died has not let
  /// go of it. Negative: there is none.
  int handedOver = -1;
  /// Why it could not be passed on, in words; empty if it was not to be.
  std::string whyHandedBack;
  /// Null while nobody keeps watch.
  LastWish* lastWish = nullptr;
};

/// What keeping watch needs from its caller.
struct WatchedProgram {
  /// What the serving process does. When it returns, that is an exit with status 0.
  std::function<void(const ServingStart& start)> serve;
  /// Makes another program take the place of this one and go on with what is kept in that file.
  /// Returns only on failure, with the reason in words.
  std::function<std::string(int memoryFile)> handOver;
  /// Called when a serving process has died; null: nothing is.
  std::function<void()> afterDeath = {};
  /// Called before another one starts anew, when all that the one before had open is closed; null:
  /// nothing is.
  std::function<void()> beforeNewStart = {};
  /// The file that the program before has handed over, with Internet sockets; negative: none has.
  int handedOver = -1;
};

/// Calls `serve` in a process of its own and waits for its end. The caller has no second thread and
/// does not use the descriptors that `serve` opens. Never returns: ends this process.
///
/// - When the serving process exits, what it has wished is done. Without a wish, this one ends with
///   the same status. When SIGTERM, SIGINT or SIGHUP has ended it, the same signal ends this one.
/// - SIGTERM to this process kills the serving one, and ends this one when that is gone: nobody has
///   its descriptors then.
/// - When another signal has ended it, it has died. A line on the console says so, and `serve` is
///   called in another one, which goes on. After `DeathCount::kMost` deaths within a minute,
///   everything that the dead one had open is closed, the next one starts anew after
///   `kPauseBeforeNewStart`, and the counting begins anew. A stopped one is not dead.
/// - When this process ends, the serving one is killed.
/// - SIGUSR2, SIGHUP and SIGINT to this process are passed on. The serving one begins with SIGUSR2
///   blocked, and with the other signals as they are now.
///
/// On a system where this is not possible, a line on the console says so, and `serve` is called in
/// this process.
[[noreturn]] void watchOver(const WatchedProgram& program);

/// The time for which nobody serves before a new start, so that a name server that dies again and
/// again takes no processor for itself.
inline constexpr std::chrono::seconds kPauseBeforeNewStart{1};

/// Counts the deaths of the last minute.
class DeathCount {
 public:
  using Clock = std::chrono::steady_clock;
  /// So many within `kTime` are too many.
  static constexpr int kMost = 3;
  static constexpr std::chrono::minutes kTime{1};

  /// Counts one. Returns how many there were in the minute before `now`, together with this one.
  int add(Clock::time_point now);
  void forgetAll() { times_.clear(); }

 private:
  std::vector<Clock::time_point> times_;
};

/// Returns the name of a signal, such as "SIGSEGV"; "signal 34" for one that has none.
[[nodiscard]] std::string signalName(int number);

}  // namespace sorvane
