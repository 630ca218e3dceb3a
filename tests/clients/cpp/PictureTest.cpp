// What replies about changes are read as, and what a picture of the registry tells after them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "client/Page.h"
#include "client/Picture.h"
#include "support/WireBytes.h"

namespace sorvane::client::detail {
namespace {

using test::entry;
using Texts = std::vector<std::string>;

std::string text(const std::string& key, const std::string& value) {
  return entry(key, value + std::string(1, '\0'));
}

std::string begin(const char* more = "NO", const char* restart = "NO") {
  return text("instance", "i") + text("sequence", "7") + text("more", more) +
         text("restart", restart);
}

std::string row(const std::string& name, const std::string& rest = "") {
  return text("name", name) + rest;
}

Result<Page> pageOf(const std::string& body) {
  auto reply = Reply::ofBody({body.begin(), body.end()});
  EXPECT_TRUE(reply);
  return readPage(*reply);
}

std::optional<ErrorCode> errorOf(const std::string& body) {
  const auto page = pageOf(body);
  return page ? std::nullopt : std::optional(page.error().code);
}

TEST(Page, HasAllThatIsToldOfAName) {
  const auto page =
      pageOf(begin("YES", "YES") +
             entry("0", row("db1", text("portNumber", "20222") + text("portHost", "hosta") +
                                       text("portHostAddress", "192.0.2.1") +
                                       text("portType", "database") + text("portStatus", "up") +
                                       text("alertStatus", "full") +
                                       text("alertStatusTimestamp", "1.500000") +
                                       text("left", "YES") + text("laterKey", "x"))) +
             entry("1", row("db2", text("gone", "YES"))) + text("laterKey", "x"));
  ASSERT_TRUE(page) << page.error().reason;
  EXPECT_EQ(page->instance, "i");
  EXPECT_EQ(page->sequence, "7");
  EXPECT_TRUE(page->more);
  EXPECT_TRUE(page->restart);
  ASSERT_EQ(page->entries.size(), 2U);
  const Entry db1{
      "db1",
      20222,
      "hosta",
      "192.0.2.1",
      "database",
      "up",
      "full",
      std::chrono::system_clock::from_time_t(978307201) + std::chrono::milliseconds(500),
      true};
  EXPECT_EQ(page->entries[0].entry, db1);
  EXPECT_FALSE(page->entries[0].gone);
  EXPECT_TRUE(page->entries[1].gone);
}

// What strangers have registered must not keep anybody from the rest.
TEST(Page, HasTheLaterOfTwoRowsOfAName) {
  const auto page =
      pageOf(begin() + entry("0", row("db2", text("portNumber", "1"))) +
             entry("1", row("db1", text("gone", "YES"))) + entry("2", row("db3")) +
             entry("3", row("db1")) + entry("4", row("db2", text("portNumber", "2"))));
  ASSERT_TRUE(page) << page.error().reason;
  ASSERT_EQ(page->entries.size(), 3U);
  EXPECT_EQ(page->entries[0].entry.name, "db3");
  EXPECT_EQ(page->entries[1].entry.name, "db1");
  EXPECT_FALSE(page->entries[1].gone);
  EXPECT_EQ(page->entries[2].entry.name, "db2");
  EXPECT_EQ(page->entries[2].entry.number, 2);
}

TEST(Page, IsReadWhateverWasRegistered) {
  for (const char* number : {"", "0", "65536", "-1", "20222x", "a", "999999999999999999999"}) {
    EXPECT_EQ(readPort(number), 0) << number;
  }
  EXPECT_EQ(readPort("65535"), 65535);
  for (const char* time : {"", "-1", "1.", "1.1234567", ".5", "1.-5", "x", "9000000000", "1.5x"}) {
    EXPECT_FALSE(readTime(time)) << time;
  }
  EXPECT_TRUE(readTime("8000000000.999999"));
}

TEST(Page, ThatIsNoneIsAnError) {
  EXPECT_EQ(readPage(Reply()).error().code, ErrorCode::refused);
  EXPECT_EQ(errorOf(""), ErrorCode::unsupported);
  EXPECT_EQ(errorOf(text("instance", "i")), ErrorCode::protocol);
  EXPECT_EQ(errorOf(begin("maybe")), ErrorCode::protocol);
  EXPECT_EQ(errorOf(begin("NO", "maybe")), ErrorCode::protocol);
  EXPECT_EQ(errorOf(text("instance", "i") + text("sequence", std::string(65, '1')) +
                    text("more", "NO") + text("restart", "NO")),
            ErrorCode::protocol);
  EXPECT_EQ(errorOf(begin("YES")), ErrorCode::protocol) << "more, and nothing told";
  EXPECT_EQ(errorOf(begin() + entry("1", row("db1"))), ErrorCode::protocol);
  EXPECT_EQ(errorOf(begin() + entry("0", "abc")), ErrorCode::protocol);
  EXPECT_EQ(errorOf(begin() + entry("0", text("portHost", "h"))), ErrorCode::protocol);
  EXPECT_EQ(errorOf(begin() + entry("0", entry("name", "\xff"))), ErrorCode::protocol);
  EXPECT_EQ(errorOf(begin()), std::nullopt);
}

class APicture : public testing::Test {
 protected:
  static PageEntry with(const std::string& name, const std::string& state) {
    PageEntry each;
    each.entry.name = name;
    each.entry.state = state;
    return each;
  }
  static PageEntry without(const std::string& name) {
    PageEntry each;
    each.entry.name = name;
    each.gone = true;
    return each;
  }
  /// Applies a page, and returns what was told since the last one.
  Texts applied(bool restart, bool more, std::vector<PageEntry> entries) {
    EXPECT_TRUE(picture_.apply({"i", "1", more, restart, std::move(entries)}));
    return std::exchange(told_, {});
  }

  Texts told_;
  Picture picture_{[this](const Change& change) {
    told_.push_back(std::string(1, "+*-"[static_cast<int>(change.kind)]) + change.entry.name + ":" +
                    change.entry.state);
  }};
};

TEST_F(APicture, TellsWhatIsDifferentAlone) {
  EXPECT_EQ(applied(true, false, {with("a", "1"), with("b", "1")}), (Texts{"+a:1", "+b:1"}));
  EXPECT_EQ(applied(false, false, {with("a", "1"), with("b", "2"), without("c")}), Texts{"*b:2"});
  EXPECT_EQ(applied(false, false, {without("a"), with("c", "1")}), (Texts{"-a:1", "+c:1"}));
  EXPECT_EQ(picture_.entries().size(), 2U);
}

TEST_F(APicture, TellsWhatIsGoneWhenEverythingWasToldAnew) {
  static_cast<void>(applied(true, false, {with("a", "1"), with("b", "1"), with("c", "1")}));
  EXPECT_EQ(applied(true, true, {with("c", "2")}), Texts{"*c:2"});
  EXPECT_EQ(applied(false, false, {with("a", "1")}), Texts{"-b:1"});
  // A restart in the middle of another one.
  EXPECT_EQ(applied(true, true, {with("a", "1")}), Texts());
  EXPECT_EQ(applied(true, true, {with("c", "2")}), Texts());
  EXPECT_EQ(applied(false, false, {with("d", "1")}), (Texts{"+d:1", "-a:1"}));
}

TEST_F(APicture, LeavesOutTheNamesThatAreNoDatabases) {
  EXPECT_EQ(applied(true, false,
                    {with("VN_nameserver", ""), with("VN_infoserver", ""), with("sorvexec", ""),
                     with("a", "1")}),
            Texts{"+a:1"});
}

TEST_F(APicture, CountsWhatItKeeps) {
  static_cast<void>(applied(true, false, {with("a", std::string(100, 'x')), with("b", "")}));
  const std::size_t both = picture_.bytes();
  static_cast<void>(applied(false, false, {with("a", "")}));
  EXPECT_EQ(picture_.bytes(), both - 100);
  static_cast<void>(applied(false, false, {without("a"), without("b")}));
  EXPECT_EQ(picture_.bytes(), 0U);
}

TEST(PictureThatIsFull, IsAnError) {
  Picture picture([](const Change&) {}, 2000);
  Page page{"i", "1", false, true, {}};
  page.entries.resize(4);
  for (int number = 0; number < 4; ++number) {
    page.entries[number].entry.name = std::to_string(number);
  }
  EXPECT_EQ(picture.apply(page).error().code, ErrorCode::protocol);
  EXPECT_EQ(picture.entries().size(), 3U);
}

}  // namespace
}  // namespace sorvane::client::detail
