// A name server whose system clock the test moves.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

#include "integration/Daemon.h"
#include "support/TestFiles.h"

namespace sorvane::test {

/// The distance of a name server's clock from the system's; 0 at first.
class ShiftedClock {
 public:
  enum class Clock : std::uint8_t {
    timeOfDay,
    steadyOfStarted,  ///< of the process that was started, not of its children
  };

  explicit ShiftedClock(Clock clock = Clock::timeOfDay)
      : variable_(clock == Clock::timeOfDay ? "SHIFTED_CLOCK" : "SHIFTED_STEADY_CLOCK") {
    writeFile(shift_, std::string(sizeof(std::int64_t), '\0'));
  }

  /// What a new process does to have this clock: for `Program::Options` and `Daemon::launch`.
  [[nodiscard]] std::function<void()> use() const {
    return [this] {
      ::setenv("LD_PRELOAD", SORVANE_BINARY_DIR "/tests/libshifted_clock.so", 1);
      ::setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
      ::setenv(variable_, shift_.c_str(), 1);
    };
  }
  /// Starts a name server that has this clock.
  void launch(Daemon& server) const { server.launch({"-noexit"}, use()); }
  /// Sets the clock that many seconds ahead of the system's.
  void setAhead(std::int64_t seconds) const {
    const int file = ::open(shift_.c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_EQ(::pwrite(file, &seconds, sizeof seconds, 0), static_cast<ssize_t>(sizeof seconds));
    ::close(file);
  }

 private:
  const char* const variable_;
  TemporaryFolder folder_;
  std::filesystem::path shift_ = folder_ / "shift";
};

}  // namespace sorvane::test
