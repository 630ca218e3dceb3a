// What the documents show is tried out as it stands there.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <charconv>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "integration/Client.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> linesOf(const fs::path& document) {
  std::istringstream stream(readFile(fs::path(SORVANE_SOURCE_DIR) / document));
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) {
    lines.push_back(line);
  }
  return lines;
}

/// The texts between fences of that kind ("python", or "" for the plain ones).
std::vector<std::string> fencedBlocks(const fs::path& document, const std::string& kind) {
  std::vector<std::string> blocks;
  bool inside = false;
  bool wanted = false;
  for (const std::string& line : linesOf(document)) {
    if (line.rfind("```", 0) != 0) {
      if (inside && wanted) {
        blocks.back() += line + "\n";
      }
      continue;
    }
    inside = !inside;
    wanted = inside && line == "```" + kind;
    if (wanted) {
      blocks.emplace_back();
    }
  }
  return blocks;
}

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
  const auto blocks = fencedBlocks("docs/protocol.md", "");
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
  const auto blocks = fencedBlocks("docs/protocol.md", "python");
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

/// The built tree, installed where the documents say, and a name server started from it.
class FirstSteps : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string install =
        "cmake --install '" SORVANE_BINARY_DIR "' --prefix '" + stage_.string() + "' > /dev/null";
    ASSERT_EQ(system(install.c_str()), 0) << install;
    writeFile(stage_ / "etc/sorvane.conf",
              "BasePort = " + std::to_string(ports_.base()) +
                  ";\nBonjourDisabled = YES;\nHostName = testhost;\nLockDirectory = \"" +
                  stage_.string() + "\";\n");
    server_.emplace(stage_ / "bin/sorvinfo", std::vector<std::string>{"noexit"});
  }
  ~FirstSteps() override {
    for (const auto& folder : fs::directory_iterator("/proc")) {
      std::error_code gone;
      const fs::path where = fs::read_symlink(folder.path() / "cwd", gone);
      if (!gone && where == tree_.path()) {
        ADD_FAILURE() << "left behind: " << folder.path();
        ::kill(std::stoi(folder.path().filename()), SIGKILL);
      }
    }
  }

  /// Whether that word of sorvctl succeeds.
  [[nodiscard]] bool can(std::vector<std::string> words) const {
    return run(stage_ / "bin/sorvctl", std::move(words)).status == 0;
  }
  /// The lines of the chapter "First steps", as they are to be typed.
  [[nodiscard]] static std::vector<std::string> commands() {
    std::vector<std::string> commands;
    bool inChapter = false;
    for (const std::string& line : linesOf("README.md")) {
      if (line.rfind("## ", 0) == 0) {
        inChapter = line == "## First steps";
      } else if (inChapter && line.rfind("    ", 0) == 0) {
        commands.push_back(line.substr(4));
      }
    }
    return commands;
  }

  FreePorts ports_;
  TemporaryFolder tree_;
  const fs::path stage_ = tree_ / "build/stage";
  std::optional<Program> server_;
};

/// Somebody who types waits until a registration has begun, and ended.
std::string typed(const std::string& command) {
  constexpr const char* kFinds = "sorvctl find db1 > /dev/null 2>&1; do :; done\n";
  if (command.back() == '&') {
    return command + "\nuntil " + kFinds;
  }
  if (command.rfind("kill", 0) == 0) {
    return command + "\nwhile " + kFinds;
  }
  return command + "\necho status $?\n";
}

TEST_F(FirstSteps, OfTheReadmeWorkAsTheyArePrinted) {
  ASSERT_TRUE(waitUntil([this] { return can({"ping"}); })) << server_->errors();
  std::string script;
  std::string statuses;
  for (const std::string& command : commands()) {
    script += typed(command);
  }
  Program shell("/bin/bash", {"--norc"}, {script, [this] {
                                            if (::chdir(tree_.path().c_str()) != 0) {
                                              _exit(126);
                                            }
                                          }});
  ASSERT_EQ(shell.wait(), 0) << shell.output() << shell.errors();
  std::istringstream output(shell.output());
  for (std::string line; std::getline(output, line);) {
    if (line.rfind("status ", 0) == 0) {
      statuses += line.substr(7);
    }
  }
  EXPECT_EQ(statuses, "000000001") << shell.output() << shell.errors();
  for (const char* text : {"disk nearly full", "testhost", "running", "database", "{"}) {
    EXPECT_NE(shell.output().find(text), std::string::npos) << text << "\n" << shell.output();
  }
  EXPECT_TRUE(can({"terminate"}));
  EXPECT_EQ(server_->wait(), 0);
}

}  // namespace
}  // namespace sorvane::test
