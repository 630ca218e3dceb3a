// Each call of the serving path fails once at each of its places, and nobody notices beyond whom it
// must cost.
#include <errno.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "faults/FailingDaemon.h"
#include "faults/FaultList.h"
#include "faults/Session.h"
#include "integration/DaemonProcess.h"
#include "integration/Preferences.h"
#include "support/TestedBuild.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

/// Every error at every place, by scripts/faults; otherwise the usual ones, and in the slower
/// builds with a sanitizer a part of the places.
bool triesAll() { return std::getenv("SORVANE_FAULTS") != nullptr; }

std::uint64_t stepOfPlaces() { return triesAll() || areTestedWithoutSanitizers() ? 1 : 5; }

/// Whether a call that ends so is simply made again, or goes on.
bool isNoFailure(int error) { return error == EINTR || error == EAGAIN || error == kShort; }

std::string textOf(int error) {
  return error == kShort ? "fewer bytes" : std::string(strerrorname_np(error));
}

class EachCall : public ::testing::TestWithParam<Call> {
 protected:
  void SetUp() override {
    if (GetParam() == Call::largeMemory && !memoryCanFail()) {
      GTEST_SKIP() << "a sanitizer has an allocator of its own, which no other may stand before";
    }
    begin();
  }

  /// Plays a session without a fault. Returns how many calls of the kind it took.
  std::uint64_t playWithoutFault() {
    play({Call::count, 0, 0}, Cost::nothing);
    return calls_;
  }

  /// Plays a session with a fault. Returns false if it made fewer calls of that kind.
  bool play(const Fault& fault, Cost cost) {
    const std::size_t toldBefore = server().console().size();
    Session session(server(), ++number_);
    daemon_->countCallsAndFail(fault);
    session.play();
    if (!server().answers()) {
      expectThatTheEndIsTold(cost);
      begin();
      return true;
    }
    // Whoever has left is noticed while calls still fail.
    EXPECT_TRUE(waitUntil([&] { return openSockets() <= kListening + session.connections(); }));
    daemon_->stopCounting();
    calls_ = daemon_->calls(GetParam());
    const bool hasFailed = daemon_->hasFailed();
    EXPECT_LE(session.countLost(), cost < Cost::oneConnection ? 0 : 1);
    expectNoSpinning();
    const std::string told = server().console().substr(toldBefore);
    if (isNoFailure(fault.error)) {
      EXPECT_EQ(told.find("connections cannot be accepted"), std::string::npos) << told;
    }
    expectThePreferences(session, cost, told);
    EXPECT_TRUE(logGoesOn(server())) << "the log stays away";
    session.end();
    EXPECT_TRUE(waitUntil([&] { return openDescriptors() == descriptors_; }))
        << openDescriptors() << " descriptors are open instead of " << descriptors_;
    return hasFailed;
  }

 private:
  static constexpr int kListening = 1;  // sockets that are open while nobody is connected

  void begin() {
    daemon_ = std::make_unique<FailingDaemon>();
    daemon_->start();
    // What the first session opens stays open: the log, the threads of the disks.
    Session first(server(), ++number_);
    first.play();
    EXPECT_EQ(first.countLost(), 0);
    EXPECT_TRUE(logGoesOn(server()));
    first.end();
    EXPECT_TRUE(waitUntil([&] { return openSockets() == kListening; }));
    descriptors_ = openDescriptors();
    stored_ = first.preference();
    permissions_ = permissionsOfThePreferences();
  }

  [[nodiscard]] int openSockets() const { return DaemonProcess(server().process()).openSockets(); }

  [[nodiscard]] std::ptrdiff_t openDescriptors() const {
    const fs::path folder = fs::path("/proc") / std::to_string(server().process()) / "fd";
    return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
  }

  void expectThatTheEndIsTold(Cost cost) {
    EXPECT_EQ(cost, Cost::process) << "the name server has ended: " << server().console();
    EXPECT_NE(server().console().find("ends the process"), std::string::npos) << server().console();
  }

  /// Once nothing is to do, a request takes the serving loop one turn, and no turns are taken in
  /// vain.
  void expectNoSpinning() {
    constexpr int kPings = 50;
    RawConnection client = server().rawConnection();
    daemon_->countCalls();
    for (int i = 0; i < kPings; ++i) {
      EXPECT_TRUE(client.ask(Message({{"ping", ""}})));
    }
    daemon_->stopCounting();
    EXPECT_LE(daemon_->calls(Call::wait), 2U * kPings) << "the serving loop turns in vain";
  }

  /// The file is whole. What was set is in it, unless the fault may cost that. `told` is what the
  /// console has had meanwhile.
  void expectThePreferences(const Session& session, Cost cost, const std::string& told) {
    const PropertyList onDisk = preferencesOnDisk(server());
    const auto holds = [&](const std::string& value) {
      const PropertyList::Dictionary entry{{"databases", value}};
      return onDisk == PropertyList(PropertyList::Dictionary{{Session::kUser, entry}});
    };
    const bool isStored = holds(session.preference());
    const bool mayBeTheOld =
        cost == Cost::theStoring || cost == Cost::process || !session.isToldOfStoring();
    EXPECT_TRUE(isStored || (mayBeTheOld && holds(stored_)));
    if (isStored) {
      stored_ = session.preference();
    } else if (session.isToldOfStoring()) {
      EXPECT_NE(told.find("The preferences could not be written"), std::string::npos) << told;
    }
    EXPECT_EQ(permissionsOfThePreferences(), permissions_);
    EXPECT_EQ(filesBesidePreferences(server()), 0);
  }

  [[nodiscard]] unsigned permissionsOfThePreferences() const {
    return static_cast<unsigned>(fs::status(preferenceFile(server())).permissions());
  }

  [[nodiscard]] Daemon& server() { return daemon_->server(); }
  [[nodiscard]] const Daemon& server() const { return daemon_->server(); }

  std::unique_ptr<FailingDaemon> daemon_;
  std::ptrdiff_t descriptors_ = 0;  // that are open while nobody is connected
  std::uint64_t calls_ = 0;         // of the kind, in the last session
  std::string stored_;              // what was in the file after the last session
  unsigned permissions_ = 0;        // of the file, after the first one
  int number_ = 0;                  // of the last session
};

TEST_P(EachCall, ThatFailsOnceAtAnyPlaceCostsNobodyElseAnything) {
  const std::uint64_t places = playWithoutFault();
  ASSERT_GT(places, 0U) << "the calls are not counted";
  std::uint64_t tried = 0;
  std::uint64_t begin = 1;
  for (const PossibleFault& each : possibleFaults()) {
    if (each.call != GetParam() || (!each.isTriedAlways && !triesAll())) {
      continue;
    }
    for (std::uint64_t place = begin; place <= places && !HasFailure(); place += stepOfPlaces()) {
      SCOPED_TRACE("call " + std::to_string(place) + " of " + std::to_string(places) +
                   " fails: " + textOf(each.error));
      tried += play({each.call, place, each.error}, each.cost) ? 1 : 0;
    }
    begin = begin % stepOfPlaces() + 1;
  }
  playWithoutFault();  // all is as before
  EXPECT_GT(tried, 0U);
  RecordProperty("places", static_cast<int>(places));
  RecordProperty("faults", static_cast<int>(tried));
  std::printf("%s: %d places, %d faults\n", std::string(nameOf(GetParam())).c_str(),
              static_cast<int>(places), static_cast<int>(tried));
}

std::vector<Call> allCalls() {
  std::vector<Call> calls;
  for (std::size_t i = 0; i < kCalls; ++i) {
    calls.push_back(static_cast<Call>(i));
  }
  return calls;
}

INSTANTIATE_TEST_SUITE_P(Of, EachCall, ::testing::ValuesIn(allCalls()),
                         [](const auto& each) { return std::string(nameOf(each.param)); });

}  // namespace

void PrintTo(Call call, std::ostream* out) { *out << nameOf(call); }

}  // namespace sorvane::test
