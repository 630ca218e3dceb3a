// How long a text stays valid that was replaced. With the address sanitizer, reading one that was
// freed fails the test; without it, the values tell.
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/TimeSource.h"
#include "registry/PortDescriptor.h"
#include "registry/RetiredTexts.h"

namespace sorvane {
namespace {

double now = 500.0;

class RetiredTexts : public testing::Test {
 protected:
  RetiredTexts() {
    now = 500.0;
    setTimeSource([] { return now; });
    releaseRetiredTexts();
  }
  ~RetiredTexts() override { releaseRetiredTexts(); }

  PortDescriptor record_;
};

TEST_F(RetiredTexts, StayValidWhenASetterReplacesThem) {
  record_.setPortName("the first name of the record");
  const std::string_view name = *record_.portName();
  record_.setPortHost("a host");
  record_.setRegistration({});
  EXPECT_EQ(name, "the first name of the record");
  record_.setPortStatus("stopping for the night");
  const std::string_view status = *record_.portStatus();
  record_.setPortStatus("running");
  EXPECT_EQ(status, "stopping for the night");
  EXPECT_EQ(name, "the first name of the record");
}

TEST_F(RetiredTexts, StayValidWhenAnAlertLapses) {
  record_.setAlertStatus("the disk is full");
  const std::string_view alert = *record_.alertStatus();
  now += 3601.0;
  EXPECT_FALSE(record_.alertStatus().has_value());
  EXPECT_EQ(alert, "the disk is full");
}

TEST_F(RetiredTexts, AreNoneWhenAThreadBegins) {
  std::uint32_t atFirst = 1;
  std::thread([&] { atFirst = retiredTexts; }).join();
  EXPECT_EQ(atFirst, 0U);
}

TEST_F(RetiredTexts, AreFreedAtTheEndOfTheMessage) {
  record_.setPortName("first");
  EXPECT_EQ(retiredTexts, 0U) << "nothing was replaced";
  record_.setPortName("second");
  record_.setPortName(std::nullopt);
  EXPECT_EQ(retiredTexts, 2U);
  releaseRetiredTexts();
  EXPECT_EQ(retiredTexts, 0U);
  record_.setPortName("third");
  record_.setPortName("fourth");
  EXPECT_EQ(retiredTexts, 1U);
  releaseRetiredTexts();
  EXPECT_EQ(retiredTexts, 0U) << "a single one, too";
}

TEST_F(RetiredTexts, AreNeverMoreThanTheirBound) {
  std::vector<std::string_view> views;
  for (int number = 0; number < 1000; ++number) {
    record_.setPortName("name " + std::to_string(number));
    views.push_back(*record_.portName());
    ASSERT_LE(retiredTexts, kRetiredBlocks);
  }
  for (std::size_t back = 1; back <= kRetiredBlocks + 1; ++back) {
    EXPECT_EQ(views[views.size() - back], "name " + std::to_string(1000 - back));
  }
}

TEST_F(RetiredTexts, OfAllTheBytesThatAThreadMayKeepAreKept) {
  constexpr std::size_t kHalf = kRetiredBytes / 2;
  const auto retire = [](std::size_t bytes) { retireText(std::make_unique<char[]>(bytes), bytes); };
  retire(kHalf);
  retire(kHalf);
  EXPECT_EQ(retiredTexts, 2U);
  retire(kHalf + 1);
  EXPECT_EQ(retiredTexts, 1U);
}

TEST_F(RetiredTexts, AreFreedInTheOrderInWhichTheyWereReplaced) {
  constexpr std::size_t kEighth = kRetiredBytes / 8;
  const auto retire = [](std::size_t bytes) { retireText(std::make_unique<char[]>(bytes), bytes); };
  retire(5 * kEighth);
  retire(kEighth);
  retire(2 * kEighth);
  EXPECT_EQ(retiredTexts, 3U) << "as much as there may be";
  retire(3 * kEighth);
  EXPECT_EQ(retiredTexts, 3U) << "the first one has made room for it";
  retire(3 * kEighth);
  EXPECT_EQ(retiredTexts, 3U) << "so has the second one";
  retire(2 * kEighth);
  EXPECT_EQ(retiredTexts, 3U) << "and the third one";
  retire(6 * kEighth);
  EXPECT_EQ(retiredTexts, 2U) << "and the next two";
}

TEST_F(RetiredTexts, OfLongRecordsAreNeverMoreThanTheirBytesAndTheLastOne) {
  const std::string halfOfThem(kRetiredBytes / 2 - 1000, 'x');
  record_.setPortName(halfOfThem);
  record_.setPortName(halfOfThem);
  record_.setPortName(halfOfThem);
  EXPECT_EQ(retiredTexts, 2U);
  record_.setPortName(std::string(3 * kRetiredBytes, 'y'));
  EXPECT_EQ(retiredTexts, 2U);
  const std::string_view longest = *record_.portName();
  record_.setPortName("short");
  EXPECT_EQ(retiredTexts, 1U) << "the last one, whatever its size";
  EXPECT_EQ(longest.back(), 'y');
  record_.setPortName("shorter");
  EXPECT_EQ(retiredTexts, 1U);
}

}  // namespace
}  // namespace sorvane
