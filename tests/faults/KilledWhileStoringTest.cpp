// A name server that is killed at each of the calls by which it stores the preferences.
#include <gtest/gtest.h>

#include <csignal>
#include <optional>
#include <string>
#include <vector>

#include "faults/FailingDaemon.h"
#include "faults/FaultList.h"
#include "integration/Preferences.h"

namespace sorvane::test {
namespace {

constexpr Call kCallsOfAFile[] = {Call::linkStatus, Call::stat,         Call::open,
                                  Call::lock,       Call::statusOfOpen, Call::write,
                                  Call::setMode,    Call::flush,        Call::rename};

class KilledWhileStoring : public ::testing::Test {
 protected:
  [[nodiscard]] Message change(const std::string& value) const {
    return PreferenceClient::setting("anna", {{"databases", value}});
  }

  [[nodiscard]] std::string stored() const {
    const PropertyList onDisk = preferencesOnDisk(daemon_.server());
    return *onDisk.dictionary()->at("anna").dictionary()->at("databases").string();
  }

  /// How many calls of each kind storing takes.
  std::vector<std::uint64_t> countPlaces() {
    daemon_.start();
    store("first");
    RawConnection client = daemon_.server().rawConnection();
    daemon_.countCalls();
    EXPECT_TRUE(client.ask(change("counted")));
    daemon_.stopCounting();
    std::vector<std::uint64_t> places;
    for (const Call call : kCallsOfAFile) {
      places.push_back(daemon_.calls(call));
    }
    daemon_.server().kill();
    return places;
  }

  /// Stores a value and is killed while it stores the next one.
  void storeAndBeKilled(const Fault& fault) {
    const std::string before = "before " + std::to_string(++number_);
    const std::string after = "after " + std::to_string(number_);
    daemon_.start();
    EXPECT_EQ(filesBesidePreferences(daemon_.server()), 0)
        << "what the last kill left is still there";
    store(before);
    RawConnection client = daemon_.server().rawConnection();
    daemon_.countCallsAndFail(fault);
    EXPECT_FALSE(client.ask(change(after))) << "answered before it was stored";
    ASSERT_EQ(daemon_.server().waitForExit(), 128 + SIGKILL);
    const std::string found = stored();
    EXPECT_TRUE(found == before || found == after) << found;
    if (fault.call == Call::rename) {
      EXPECT_EQ(found, fault.error == kKilledAfter ? after : before);
    }
  }

 private:
  void store(const std::string& value) {
    RawConnection client = daemon_.server().rawConnection();
    const auto reply = client.ask(change(value));
    ASSERT_TRUE(reply);
    EXPECT_EQ(textsOf(reply->message()), kSucceed);
    EXPECT_EQ(stored(), value);
  }

  FailingDaemon daemon_;
  int number_ = 0;
};

TEST_F(KilledWhileStoring, LeavesTheOldPreferencesOrTheNewOnesWhole) {
  const std::vector<std::uint64_t> places = countPlaces();
  int tried = 0;
  for (std::size_t i = 0; i < places.size(); ++i) {
    ASSERT_GT(places[i], 0U) << nameOf(kCallsOfAFile[i]);
    for (std::uint64_t place = 1; place <= places[i]; ++place) {
      for (const int moment : {kKilledBefore, kKilledAfter}) {
        SCOPED_TRACE(std::string(moment == kKilledBefore ? "before" : "after") + " call " +
                     std::to_string(place) + " of " + std::string(nameOf(kCallsOfAFile[i])));
        storeAndBeKilled({kCallsOfAFile[i], place, moment});
        ++tried;
      }
    }
  }
  RecordProperty("kills", tried);
}

}  // namespace
}  // namespace sorvane::test
