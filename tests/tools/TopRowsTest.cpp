#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sorvctl/top/Rows.h"

namespace sorvctl::top {
namespace {

using Names = std::vector<std::string>;
using std::chrono::minutes;
using std::chrono::seconds;

const Time kBegin{};

Database database(const std::string& name, const std::string& state = "running",
                  const std::string& alert = "") {
  return {{name, "20222", "dbhost", "192.0.2.1", "sql"}, state, alert};
}

Names namesOf(const std::vector<const Row*>& rows) {
  Names names;
  for (const Row* row : rows) {
    names.push_back(row->database.port.name);
  }
  return names;
}

Names byName(const Rows& rows, std::string_view filter = {}) {
  return namesOf(rows.arranged(Column::name, false, filter));
}

Names changes(const Rows& rows, const std::string& name) {
  Names texts;
  for (const Change* change : rows.changesOf(name)) {
    texts.push_back(change->what);
  }
  return texts;
}

TEST(TopRows, OfTheFirstReadingHaveNotChanged) {
  Rows rows;
  rows.take({database("db1")}, kBegin);
  ASSERT_NE(rows.find("db1"), nullptr);
  EXPECT_EQ(rows.find("db1")->lastChange, "");
  EXPECT_EQ(rows.find("db1")->since, kBegin);
  EXPECT_EQ(changes(rows, "db1"), Names{});
  EXPECT_EQ(rows.find("db2"), nullptr);
}

TEST(TopRows, ThatComeLaterHaveCome) {
  Rows rows;
  rows.take({}, kBegin);
  rows.take({database("db1")}, kBegin + seconds(5));
  EXPECT_EQ(rows.find("db1")->lastChange, "came");
  EXPECT_EQ(rows.find("db1")->since, kBegin + seconds(5));
}

TEST(TopRows, TellWhatHasChangedLastAndWhen) {
  Rows rows;
  rows.take({database("db1")}, kBegin);
  rows.take({database("db1", "stopping")}, kBegin + seconds(1));
  EXPECT_EQ(rows.find("db1")->lastChange, "state: running -> stopping");
  rows.take({database("db1", "stopping", "disk full")}, kBegin + seconds(2));
  EXPECT_EQ(rows.find("db1")->lastChange, "alert: (none) -> disk full");
  Database moved = database("db1", "running");
  moved.port.number = "20230";
  moved.port.host = "other";
  moved.port.type = "text";
  rows.take({moved}, kBegin + seconds(3));
  EXPECT_EQ(rows.find("db1")->lastChange,
            "state: stopping -> running, alert: disk full -> (none), number: 20222 -> 20230, "
            "host: dbhost -> other, type: sql -> text");
  rows.take({moved}, kBegin + seconds(4));
  EXPECT_EQ(rows.find("db1")->since, kBegin + seconds(3)) << "nothing has changed";
  EXPECT_EQ(changes(rows, "db1").size(), 3U);
  EXPECT_EQ(changes(rows, "db1")[1], "alert: (none) -> disk full") << "the latest stands first";
}

TEST(TopRows, TellOfNamesThatWereLeftBehind) {
  Rows rows;
  rows.take({database("db1"), database("db2")}, kBegin);
  Database left = database("db1");
  left.left = true;
  rows.take({left, database("db2")}, kBegin + seconds(1));
  EXPECT_EQ(rows.find("db1")->lastChange, "left behind");
  EXPECT_EQ(byName(rows, "left"), Names{"db1"});
  EXPECT_EQ(namesOf(rows.arranged(Column::state, false, "")), (Names{"db1", "db2"}));
  EXPECT_EQ(rows.listed(), 2U);
  rows.take({database("db1", "starting"), database("db2")}, kBegin + seconds(2));
  EXPECT_EQ(rows.find("db1")->lastChange, "registered again, state: running -> starting");
}

TEST(TopRows, ThatAreGoneStayForAWhile) {
  Rows rows;
  rows.take({database("db1"), database("db2", "running", "hot")}, kBegin);
  EXPECT_EQ(rows.listed(), 2U);
  EXPECT_EQ(rows.alerts(), 1U);
  rows.take({database("db1")}, kBegin + minutes(1));
  EXPECT_EQ(byName(rows), (Names{"db1", "db2"}));
  EXPECT_TRUE(rows.find("db2")->gone);
  EXPECT_EQ(rows.find("db2")->lastChange, "gone");
  EXPECT_EQ(rows.listed(), 1U);
  EXPECT_EQ(rows.alerts(), 0U);
  EXPECT_FALSE(rows.forgetGone(kBegin + minutes(1) + Rows::kGoneAreShown));
  EXPECT_TRUE(rows.forgetGone(kBegin + minutes(1) + Rows::kGoneAreShown + seconds(1)));
  EXPECT_EQ(byName(rows), Names{"db1"});
}

TEST(TopRows, ThatCameBackStay) {
  Rows rows;
  rows.take({database("db1")}, kBegin);
  rows.take({}, kBegin + seconds(1));
  rows.take({database("db1", "starting")}, kBegin + seconds(2));
  EXPECT_FALSE(rows.find("db1")->gone);
  EXPECT_EQ(rows.find("db1")->lastChange, "came back, state: running -> starting");
  EXPECT_FALSE(rows.forgetGone(kBegin + minutes(60)));
  EXPECT_EQ(rows.listed(), 1U);
}

TEST(TopRows, RememberNoMoreThanTheirBounds) {
  Rows rows;
  std::vector<Database> many;
  for (std::size_t index = 0; index < Rows::kMostGone + 5; ++index) {
    many.push_back(database("db" + std::to_string(index)));
  }
  rows.take(many, kBegin);
  rows.take({}, kBegin + seconds(1));
  EXPECT_EQ(byName(rows).size(), Rows::kMostGone);
  EXPECT_EQ(rows.listed(), 0U);
  Rows busy;
  for (std::size_t index = 0; index <= Rows::kMostChanges + 1; ++index) {
    busy.take({database("db1", std::to_string(index))}, kBegin);
  }
  EXPECT_EQ(changes(busy, "db1").size(), Rows::kMostChanges);
  EXPECT_EQ(changes(busy, "db1").back(), "state: 1 -> 2") << "the oldest is forgotten";
}

TEST(TopRows, RememberNoMoreBytesThanTheirBounds) {
  const std::string longText(std::size_t{1} << 20, 'x');
  Rows rows;
  rows.take({}, kBegin);
  std::vector<Database> many;
  for (char letter = 'a'; letter <= 'z'; ++letter) {
    many.push_back(database(letter + longText));
  }
  rows.take(many, kBegin);
  std::size_t remembered = 0;
  for (const Database& each : many) {
    remembered += rows.changesOf(each.port.name).size();
  }
  EXPECT_LT(remembered, 16U);
  EXPECT_GT(remembered, 10U);
  rows.take({}, kBegin);
  EXPECT_LT(byName(rows).size(), 16U);
  EXPECT_GT(byName(rows).size(), 10U);
}

TEST(TopRows, CutLongTextsInChangesAtACharacter) {
  Rows rows;
  rows.take({database("db1", "a")}, kBegin);
  std::string state = "x";
  while (state.size() < 2 * Rows::kLongestText) {
    state += "é";
  }
  rows.take({database("db1", state)}, kBegin);
  const std::string& text = rows.find("db1")->lastChange;
  EXPECT_LT(text.size(), Rows::kLongestText + 20);
  EXPECT_TRUE(text.ends_with("é…")) << text;
}

TEST(TopRows, AreOrderedByEachColumn) {
  Rows rows;
  rows.take({database("b", "stopping"), database("a", "running", "hot"), database("c", "running"),
             database("d")},
            kBegin);
  rows.take({database("b", "starting"), database("a", "running", "hot"), database("c", "running")},
            kBegin + seconds(1));
  rows.take({database("b", "starting"), database("a", "running", "hot"),
             database("c", "running", "cold")},
            kBegin + seconds(2));
  const auto by = [&rows](Column column, bool reversed = false) {
    return namesOf(rows.arranged(column, reversed, ""));
  };
  EXPECT_EQ(by(Column::name), (Names{"a", "b", "c", "d"}));
  EXPECT_EQ(by(Column::name, true), (Names{"d", "c", "b", "a"}));
  EXPECT_EQ(by(Column::state), (Names{"a", "c", "b", "d"})) << "what is gone stands last";
  EXPECT_EQ(by(Column::alert), (Names{"c", "a", "b", "d"})) << "alerts stand first";
  EXPECT_EQ(by(Column::age), (Names{"c", "b", "d", "a"})) << "the latest change stands first";
  EXPECT_EQ(by(Column::age, true), (Names{"a", "b", "d", "c"})) << "those that are equal by name";
  EXPECT_EQ(by(Column::change), (Names{"c", "d", "b", "a"}));
}

TEST(TopRows, AreFilteredByAnyTextInAnyCase) {
  Rows rows;
  rows.take({database("Sales"), database("stock", "STOPPING"), database("staff", "running", "Hot"),
             database("käse")},
            kBegin);
  EXPECT_EQ(byName(rows, "S"), (Names{"Sales", "käse", "staff", "stock"}));
  EXPECT_EQ(byName(rows, "stopp"), Names{"stock"});
  EXPECT_EQ(byName(rows, "hOT"), Names{"staff"});
  EXPECT_EQ(byName(rows, "KäSE"), Names{"käse"});
  EXPECT_EQ(byName(rows, "dbhost").size(), 4U);
  EXPECT_EQ(byName(rows, "nothing"), Names{});
}

TEST(TopRows, TakeTheFirstOfSeveralWithOneName) {
  Rows rows;
  rows.take({database("db1", "a"), database("db1", "b")}, kBegin);
  rows.take({database("db1", "a"), database("db1", "b")}, kBegin);
  EXPECT_EQ(rows.find("db1")->database.state, "a");
  EXPECT_EQ(changes(rows, "db1"), Names{});
}

}  // namespace
}  // namespace sorvctl::top
