#include <gtest/gtest.h>

#include <string>

#include "sorvctl/ChangeLines.h"

namespace sorvctl {
namespace {

Database database(const std::string& name, bool left) {
  Database database;
  database.port = {name, "20222", "dbhost", "", "sql"};
  database.state = "running";
  database.left = left;
  return database;
}

/// What is printed of the databases, and of what has changed then.
std::string printed(bool json, const Database& before, const Database& after) {
  Options options;
  options.json = json;
  const Session session(options);
  testing::internal::CaptureStdout();
  printChanges(session, "", {}, byName({before}), 10);
  printChanges(session, "", byName({before}), byName({after}), 10);
  return testing::internal::GetCapturedStdout();
}

TEST(ChangeLines, TellOfNamesThatAreLeftBehind) {
  EXPECT_EQ(printed(false, database("a|b:c", false), database("a|b:c", true)),
            "came a|b:c number=20222 host=dbhost type=sql state=running\n"
            "changed a|b:c left=yes\n");
  EXPECT_EQ(printed(false, database("db1", true), database("db1", false)),
            "came db1 number=20222 host=dbhost type=sql state=running left=yes\n"
            "changed db1 left=no\n");
  EXPECT_EQ(printed(true, database("db1", false), database("db1", true)),
            "{\"change\":\"came\",\"name\":\"db1\",\"number\":\"20222\",\"host\":\"dbhost\","
            "\"type\":\"sql\",\"state\":\"running\",\"alert\":\"\",\"left\":false}\n"
            "{\"change\":\"changed\",\"name\":\"db1\",\"left\":true}\n");
}

}  // namespace
}  // namespace sorvctl
