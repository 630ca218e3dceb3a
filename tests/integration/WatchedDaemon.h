// A name server over which a second process keeps watch.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <utility>
#include <vector>

#include "integration/Daemon.h"
#include "integration/DaemonProcess.h"
#include "support/TestedBuild.h"
#include "support/ThreadSanitizer.h"

namespace sorvane::test {

/// A signal by which a process dies that has a fault. A sanitizer takes SIGSEGV for itself.
inline int signalOfAFault() { return areTestedWithoutSanitizers() ? SIGSEGV : SIGABRT; }

/// The two processes of a name server.
struct Pair {
  pid_t watching = 0;
  pid_t serving = 0;
};

/// Waits until there are two: one is the other's child. Both are 0 if there never are.
inline Pair processesOf(const Daemon& server, pid_t formerlyServing = 0) {
  Pair pair;
  EXPECT_TRUE(waitUntil([&] {
    std::vector<pid_t> all = server.processes();
    std::erase(all, formerlyServing);
    if (all.size() != 2) {
      return false;
    }
    pair = {all[0], all[1]};
    try {
      if (DaemonProcess(pair.watching).parent() == pair.serving) {
        std::swap(pair.watching, pair.serving);
      }
      return DaemonProcess(pair.serving).parent() == pair.watching;
    } catch (const std::runtime_error&) {
      return false;  // one of them has just ended
    }
  })) << "there are no two processes";
  return pair;
}

/// A name server that survives crashes. Not started yet.
class SurviveCrashes : public testing::Test {
 protected:
  void SetUp() override {
    if (testedSanitizers().find("thread") != std::string::npos) {
      GTEST_SKIP() << kUnknownToThreadSanitizer;
    }
    server_.setting("SurviveCrashes", "YES");
  }

  [[nodiscard]] pid_t serving(pid_t formerlyServing = 0) const {
    return processesOf(server_, formerlyServing).serving;
  }
  [[nodiscard]] bool isGone() const {
    return waitUntil([this] { return server_.processes().empty(); });
  }
  /// The serving process dies. Returns how long it took until the name server answered again.
  std::chrono::steady_clock::duration diesOf(int signal) {
    const pid_t dying = serving();
    // A thread that has sent a reply may not have noted yet that it has.
    EXPECT_TRUE(waitUntil([&] { return DaemonProcess(dying).sleeps(); }));
    const auto began = std::chrono::steady_clock::now();
    kill(dying, signal);
    EXPECT_TRUE(waitUntil([&] {
      const std::vector<pid_t> all = server_.processes();
      return std::find(all.begin(), all.end(), dying) == all.end();
    }));
    EXPECT_TRUE(server_.answers()) << server_.console();
    const auto took = std::chrono::steady_clock::now() - began;
    EXPECT_NE(serving(dying), dying);
    return took;
  }

  Daemon server_;
};

}  // namespace sorvane::test
