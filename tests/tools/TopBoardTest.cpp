// The live view without a terminal: what it shows, and what the keys do.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "sorvctl/TerminalText.h"
#include "sorvctl/top/Board.h"
#include "sorvctl/top/Layout.h"

namespace sorvctl::top {
namespace {

using Texts = std::vector<std::string>;
using std::chrono::seconds;

const Time kBegin{};

Database database(const std::string& name, const std::string& state = "running",
                  const std::string& alert = "") {
  return {{name, "20222", "box7", "192.0.2.1", "sql"}, state, alert};
}

/// The text of a line. Expects that no part stands in another one's place, or beyond the line.
std::string textOf(const Line& line, int columns) {
  std::string text;
  int end = 0;
  for (const Span& span : line.spans) {
    EXPECT_GE(span.column, end) << span.text;
    EXPECT_LE(displayWidth(span.text), static_cast<std::size_t>(std::max(span.width, 0)))
        << span.text;
    text.append(static_cast<std::size_t>(std::max(span.column - end, 0)), ' ');
    text += span.text;
    end = span.column + static_cast<int>(displayWidth(span.text));
    EXPECT_LE(end, columns) << text;
  }
  return text.substr(0, text.find_last_not_of(' ') + 1);
}

class TopBoard : public testing::Test {
 protected:
  void sees(std::vector<Database> databases, Time now = kBegin) {
    board.take({true, std::move(databases), "", now});
  }
  void loses(const std::string& failure, Time now) { board.take({false, {}, failure, now}); }
  void press(Key key) { board.press({key, {}}); }
  void type(const std::string& text) {
    for (const char letter : text) {
      board.press({Key::text, std::string(1, letter)});
    }
  }
  Texts lines(Time now = kBegin) {
    Texts texts;
    for (const Line& line : board.picture(size, now)) {
      texts.push_back(textOf(line, size.columns));
    }
    EXPECT_EQ(texts.size(), static_cast<std::size_t>(size.rows));
    return texts;
  }
  /// The names in the table.
  Texts names() {
    Texts all = lines();
    Texts names;
    for (std::size_t row = 3; row + 1 < all.size() && !all[row].empty(); ++row) {
      names.push_back(all[row].substr(0, all[row].find(' ')));
    }
    return names;
  }
  std::string selected() {
    for (const Line& line : board.picture(size, kBegin)) {
      if (line.selected) {
        return line.spans.front().text;
      }
    }
    return "";
  }
  void seesNames(const Texts& all) {
    std::vector<Database> databases;
    for (const std::string& name : all) {
      databases.push_back(database(name));
    }
    sees(std::move(databases));
  }

  Size size{10, 80};
  Board board{"sorvctl top: dbhost port 20221", kBegin};
};

TEST_F(TopBoard, ShowsEachDatabaseWithStateAlertAgeAndLastChange) {
  sees({database("db1"), database("db2", "running", "disk nearly full")});
  sees({database("db1", "stopping"), database("db2", "running", "disk nearly full")},
       kBegin + seconds(60));
  const Texts shown = lines(kBegin + seconds(65));
  EXPECT_EQ(shown[0],
            "sorvctl top: dbhost port 20221                              2 databases, 1 alert");
  EXPECT_EQ(shown[1], "by name");
  EXPECT_EQ(shown[2], "NAME                STATE       ALERT                   AGE  LAST CHANGE");
  EXPECT_EQ(shown[3],
            "db1                 stopping                            5 s  state: running -> …");
  EXPECT_EQ(shown[4], "db2                 running     disk nearly full     >1 min");
  EXPECT_EQ(shown[5], "");
  EXPECT_EQ(shown[9], "? help  q quit  / filter  s order  r reverse  enter details");
}

TEST_F(TopBoard, SaysThatItAsksUntilTheServerHasReplied) {
  EXPECT_EQ(lines()[1], "asking");
  sees({});
  EXPECT_EQ(lines()[1], "by name");
  EXPECT_TRUE(lines()[0].ends_with("  0 databases, 0 alerts")) << lines()[0];
}

TEST_F(TopBoard, KeepsTheRowsWhileTheServerIsAway) {
  seesNames({"db1"});
  loses("Connection refused", kBegin + seconds(10));
  loses("No route to host", kBegin + seconds(20));
  EXPECT_EQ(lines(kBegin + seconds(42))[1], "not reached for 32 s, trying again: No route to host");
  EXPECT_EQ(names(), Texts{"db1"});
  seesNames({"db1"});
  EXPECT_EQ(lines()[1], "by name");
  loses("again", kBegin + seconds(50));
  EXPECT_EQ(lines(kBegin + seconds(51))[1], "not reached for 1 s, trying again: again");
}

TEST_F(TopBoard, MarksANameThatWasLeftBehind) {
  Database left = database("db1", "stopping");
  left.left = true;
  sees({left});
  EXPECT_NE(lines()[3].find("left"), std::string::npos) << lines()[3];
  EXPECT_EQ(lines()[3].find("stopping"), std::string::npos) << lines()[3];
  press(Key::enter);
  EXPECT_EQ(lines()[3], "state    left");
  EXPECT_NE(lines()[4].find("The name stayed"), std::string::npos) << lines()[4];
  EXPECT_EQ(lines()[6], "         The state was stopping.");
}

TEST_F(TopBoard, ShowsWhatIsGoneUntilItIsForgotten) {
  seesNames({"db1", "db2"});
  seesNames({"db1"});
  EXPECT_NE(lines()[4].find("gone"), std::string::npos) << lines()[4];
  EXPECT_EQ(lines(kBegin + Rows::kGoneAreShown + seconds(1))[4], "");
}

TEST_F(TopBoard, ShowsOnlyTheRowsForWhichThereIsRoom) {
  Texts many;
  for (int index = 100; index < 400; ++index) {
    many.push_back("db" + std::to_string(index));
  }
  seesNames(many);
  EXPECT_EQ(names(), (Texts{"db100", "db101", "db102", "db103", "db104", "db105"}));
  press(Key::pageDown);
  EXPECT_EQ(selected(), "db106");
  EXPECT_EQ(names().front(), "db101");
  press(Key::last);
  EXPECT_EQ(selected(), "db399");
  EXPECT_EQ(names().size(), 6U);
  press(Key::up);
  EXPECT_EQ(selected(), "db398");
  press(Key::pageUp);
  EXPECT_EQ(names().front(), "db392");
  press(Key::first);
  EXPECT_EQ(names().front(), "db100");
  press(Key::down);
  type("jjk");
  EXPECT_EQ(selected(), "db102");
  type("G");
  EXPECT_EQ(selected(), "db399");
  type("g");
  EXPECT_EQ(selected(), "db100");
  press(Key::up);
  EXPECT_EQ(selected(), "db100") << "nothing is above the first";
}

TEST_F(TopBoard, KeepsTheSelectionWhenRowsComeAndGo) {
  seesNames({"b", "c", "d"});
  press(Key::down);
  EXPECT_EQ(selected(), "c");
  seesNames({"a", "b", "c", "d"});
  EXPECT_EQ(selected(), "c");
  press(Key::first);
  seesNames({"0", "a", "b", "c", "d"});
  EXPECT_EQ(selected(), "0") << "the first place stays the first place";
}

TEST_F(TopBoard, FillsTheScreenWhenItGrows) {
  seesNames({"a", "b", "c", "d", "e", "f", "g", "h"});
  size.rows = 6;
  (void)lines();
  press(Key::last);
  EXPECT_EQ(names(), (Texts{"g", "h"}));
  size.rows = 10;
  EXPECT_EQ(names(), (Texts{"c", "d", "e", "f", "g", "h"}));
}

TEST_F(TopBoard, OrdersByTheNextColumnAndReverses) {
  sees({database("a", "stopping"), database("b", "running", "hot"), database("c", "broken")});
  type("s");
  EXPECT_EQ(lines()[1], "by state");
  EXPECT_EQ(names(), (Texts{"c", "b", "a"}));
  type("s");
  EXPECT_EQ(lines()[1], "by alert");
  EXPECT_EQ(names(), (Texts{"b", "a", "c"}));
  type("r");
  EXPECT_EQ(lines()[1], "by alert, reversed");
  EXPECT_EQ(names(), (Texts{"a", "c", "b"}));
  type("sss");
  EXPECT_EQ(lines()[1], "by name, reversed");
}

TEST_F(TopBoard, FiltersWhileOneTypes) {
  seesNames({"sales", "stock", "staff", "käse"});
  type("/st");
  EXPECT_EQ(names(), (Texts{"staff", "stock"}));
  EXPECT_EQ(lines()[1], "by name, 2 with \"st\"");
  EXPECT_EQ(lines()[9], "show rows with: st");
  type("q");
  EXPECT_FALSE(board.isEnded()) << "a letter of the filter";
  EXPECT_EQ(names(), Texts{});
  press(Key::backspace);
  press(Key::enter);
  EXPECT_EQ(names(), (Texts{"staff", "stock"}));
  EXPECT_EQ(lines()[9].substr(0, 6), "? help");
  press(Key::escape);
  EXPECT_EQ(names().size(), 4U);
  type("/s");
  board.press({Key::text, "ä"});
  EXPECT_EQ(lines()[9], "show rows with: sä");
  press(Key::backspace);
  EXPECT_EQ(lines()[9], "show rows with: s") << "a character, not a byte, goes";
  press(Key::escape);
  EXPECT_EQ(lines()[1], "by name");
}

TEST_F(TopBoard, BoundsTheFilter) {
  seesNames({"a"});
  size.columns = 400;
  type("/" + std::string(Board::kLongestFilter + 10, 'x'));
  EXPECT_EQ(lines()[9], "show rows with: " + std::string(Board::kLongestFilter, 'x'));
}

TEST_F(TopBoard, ShowsAllThatIsKnownOfOne) {
  size = {16, 80};
  sees({database("db1"), database("db2")});
  sees({database("db1"), database("db2", "stopping", "disk nearly full")}, kBegin + seconds(5));
  sees({database("db1"), database("db2", "stopping")}, kBegin + seconds(7));
  press(Key::down);
  press(Key::enter);
  EXPECT_EQ(
      lines(kBegin + seconds(67)),
      (Texts{"sorvctl top: dbhost port 20221                             2 databases, 0 alerts",
             "by name", "name     db2", "state    stopping", "alert", "age      1 min",
             "number   20222", "host     box7", "type     sql", "",
             "What has changed, the latest first:", "1 min    alert: disk nearly full -> (none)",
             "1 min    state: running -> stopping, alert: (none) -> disk nearly full", "", "",
             "escape back  q quit"}));
  press(Key::escape);
  EXPECT_EQ(names().size(), 2U);
  press(Key::enter);
  type("q");
  EXPECT_TRUE(board.isEnded());
}

TEST_F(TopBoard, ScrollsWhatIsLongerThanTheScreen) {
  seesNames({"db1"});
  size = {6, 80};
  press(Key::enter);
  (void)lines();
  EXPECT_EQ(lines()[2], "name     db1");
  press(Key::down);
  EXPECT_EQ(lines()[2], "state    running");
  press(Key::pageDown);
  press(Key::pageDown);
  press(Key::pageDown);
  press(Key::pageDown);
  press(Key::pageDown);
  EXPECT_EQ(lines()[4], "Nothing has changed since this view began.");
  press(Key::up);
  EXPECT_EQ(lines()[4], "");
  press(Key::first);
  EXPECT_EQ(lines()[2], "name     db1");
}

TEST_F(TopBoard, TellsThatADatabaseIsForgottenWhileItIsShown) {
  seesNames({"db1", "db2"});
  press(Key::last);
  press(Key::enter);
  seesNames({"db1"});
  EXPECT_EQ(lines()[3], "state    gone");
  EXPECT_EQ(lines(kBegin + Rows::kGoneAreShown + seconds(1))[2], "It is no longer remembered.");
  press(Key::enter);
  EXPECT_EQ(selected(), "db1");
}

TEST_F(TopBoard, ShowsTheMeaningOfTheKeys) {
  size.rows = 20;
  for (const char* key : {"?", "h"}) {
    type(key);
    Texts shown = lines();
    EXPECT_NE(std::find(shown.begin(), shown.end(), "q       quit"), shown.end());
    press(Key::escape);
    EXPECT_EQ(lines()[2].substr(0, 4), "NAME");
  }
}

TEST_F(TopBoard, EndsByQAlone) {
  seesNames({"db1"});
  for (const Key key : {Key::escape, Key::enter, Key::escape, Key::backspace}) {
    press(key);
  }
  type("xyz");
  EXPECT_FALSE(board.isEnded());
  type("q");
  EXPECT_TRUE(board.isEnded());
}

TEST_F(TopBoard, FitsIntoATerminalOfAnySize) {
  sees({database("日本語データベース-with-a-long-name", "stopping", "disk\nnearly\x1b[2J full"),
        database(std::string(1000, 'x'), std::string(1000, 'y'), std::string(1000, '\xff')),
        database("e\u0301e\u0301e\u0301")});
  loses(std::string(1000, 'z'), kBegin);
  for (const int rows : {0, 1, 4, 5, 24}) {
    for (const int columns : {0, 1, 5, 19, 20, 30, 40, 56, 80, 300}) {
      size = {rows, columns};
      for (const char* keys : {"", "?", "/abc"}) {
        type(keys);
        for (const std::string& line : lines()) {
          EXPECT_EQ(line.find_first_of("\n\x1b"), std::string::npos);
        }
        press(Key::escape);
      }
      press(Key::enter);
      (void)lines();
      press(Key::enter);
    }
  }
}

TEST_F(TopBoard, MarksWhatIsGoodAndBad) {
  sees({database("db1", "running", "hot"), database("db2", "stopping"), database("db3")});
  sees({database("db1", "running", "hot"), database("db2", "stopping")}, kBegin + seconds(1));
  const Picture picture = board.picture(size, kBegin + seconds(60));
  const auto tone = [&](std::size_t row, std::size_t field) {
    return picture[row].spans[field].tone;
  };
  EXPECT_EQ(tone(3, 1), Tone::good);
  EXPECT_EQ(tone(3, 2), Tone::bad);
  EXPECT_EQ(tone(4, 1), Tone::doubtful);
  EXPECT_EQ(tone(5, 1), Tone::faint) << "gone";
}

TEST(TopLayout, HasMoreFieldsInAWiderLine) {
  const struct {
    int columns;
    std::vector<Field> fields;
  } rows[] = {
      {10, {Field::name}},
      {20, {Field::name, Field::state}},
      {40, {Field::name, Field::state, Field::age}},
      {60, {Field::name, Field::state, Field::alert, Field::age}},
      {80, {Field::name, Field::state, Field::alert, Field::age, Field::change}},
      {300,
       {Field::name, Field::state, Field::alert, Field::age, Field::change, Field::number,
        Field::host, Field::type}},
  };
  for (const auto& row : rows) {
    std::vector<Field> fields;
    for (const Place& place : layout(row.columns)) {
      fields.push_back(place.field);
    }
    EXPECT_EQ(fields, row.fields) << row.columns;
  }
}

TEST(TopLayout, UsesTheWholeLineAndNoMore) {
  for (int columns = 0; columns <= 500; ++columns) {
    int end = -2;
    for (const Place& place : layout(columns)) {
      EXPECT_EQ(place.column, end + 2) << columns;
      EXPECT_GE(place.width, columns < 20 ? 0 : 6) << columns;
      end = place.column + place.width;
    }
    EXPECT_EQ(end, columns);
  }
}

}  // namespace
}  // namespace sorvctl::top
