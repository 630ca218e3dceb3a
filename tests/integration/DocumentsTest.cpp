// The examples of docs/protocol.md, tried out as they are printed there.
#include <gtest/gtest.h>

#include <charconv>
#include <filesystem>
#include <sstream>
#include <string>

#include "integration/Client.h"
#include "support/Documents.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

const fs::path kProtocol = fs::path(SORVANE_SOURCE_DIR) / "docs/protocol.md";

/// The bytes that a line begins with, two hexadecimal digits each; three blanks end them.
std::string leadingBytes(const std::string& line) {
  std::istringstream digits(line.substr(0, line.find("   ")));
  std::string bytes;
  for (std::string each; digits >> each;) {
    int byte = 0;
    const auto end = std::from_chars(each.data(), each.data() + each.size(), byte, 16);
    EXPECT_TRUE(end.ptr == each.data() + 2 && each.size() == 2) << line;
    bytes += static_cast<char>(byte);
  }
  return bytes;
}

class Protocol : public Served {};

TEST_F(Protocol, ExamplesOfBytesAreWhatTheServerAnswers) {
  const auto blocks = fencedBlocks(documentLines(kProtocol), "");
  EXPECT_FALSE(blocks.empty());
  for (const std::string& block : blocks) {
    std::istringstream lines(block);
    std::string frames[2];  // the request, and behind an empty line the reply
    int which = 0;
    for (std::string line; std::getline(lines, line);) {
      which += line.empty() ? 1 : 0;
      ASSERT_LT(which, 2) << block;
      frames[which] += leadingBytes(line);
    }
    ASSERT_TRUE(tool().connection().send(frames[0]));
    EXPECT_EQ(tool().connection().receive(frames[1].size()), frames[1]) << block;
  }
}

TEST_F(Protocol, ClientWorksAsItIsPrinted) {
  const auto blocks = fencedBlocks(documentLines(kProtocol), "python");
  ASSERT_EQ(blocks.size(), 1U);
  if (run("/usr/bin/env", {"python3", "--version"}).status != 0) {
    GTEST_SKIP() << "there is no python3 on this machine";
  }
  TemporaryFolder folder;
  writeFile(folder / "client.py", blocks[0]);
  const Outcome outcome = run("/usr/bin/env", {"python3", (folder / "client.py").string(),
                                               std::to_string(server_.basePort())});
  const std::string number = std::to_string(server_.basePort() + 1);
  EXPECT_EQ(outcome.status, 0) << outcome.errors;
  EXPECT_EQ(outcome.output,
            "{'portNumber': '" + number +
                "'}\n"
                "{'acceptPort': ''}\n"
                "{'portNumber': '" +
                number +
                "', 'portName': 'db1', 'portHostAddress': 'localhost', 'portHost': 'localhost', "
                "'portType': 'database'}\n"
                "{'result': '" +
                tool().resultOf("hostInfo") + "'}\n");
}

}  // namespace
}  // namespace sorvane::test
