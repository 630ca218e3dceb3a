// The first session of README.md: each command is carried out and prints what stands below it.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "integration/Daemon.h"
#include "support/Documents.h"
#include "support/Program.h"
#include "support/TestedBuild.h"

namespace sorvane::test {
namespace {

namespace fs = std::filesystem;

/// A command of a terminal, and the lines that it prints.
struct Step {
  std::string command;
  std::string output;
};

/// The steps of a terminal: "$ " stands before each command.
std::vector<Step> stepsOf(const std::string& block) {
  std::vector<Step> steps;
  std::istringstream lines(block);
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("$ ", 0) == 0) {
      steps.push_back({line.substr(2), ""});
    } else if (steps.empty()) {
      ADD_FAILURE() << "no command stands above: " << line;
    } else {
      steps.back().output += line + "\n";
    }
  }
  return steps;
}

void replaceAll(std::string& text, const std::string& from, const std::string& to) {
  for (std::size_t at = text.find(from); at != std::string::npos;
       at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
}

/// Whether the output is what is printed. These texts in angle brackets stand for others, and
/// nothing else does.
testing::AssertionResult isAsPrinted(const std::string& output, const std::string& printed) {
  static const std::pair<const char*, const char*> kPlaceholders[] = {
      {"<time>", R"([0-9]+\.[0-9]{2})"},
      {"<version>", R"([0-9]+\.[0-9]+\.[0-9]+ \(build #[0-9]+\) [0-9.]+)"},
      {"<system>", R"([^\n]+)"}};
  std::string pattern = std::regex_replace(printed, std::regex(R"([.*+?^${}()|[\]\\])"), R"(\$&)");
  for (const auto& [placeholder, meaning] : kPlaceholders) {
    replaceAll(pattern, placeholder, meaning);
  }
  if (std::regex_match(output, std::regex(pattern))) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure() << "printed:\n" << printed << "but it is:\n" << output;
}

/// The built tree, installed where README.md says, and a name server started from it. Its host is
/// the one that README.md shows.
class FirstSession : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string install = "cmake --install '" + testedBuild().string() + "' --prefix '" +
                                stage_.string() + "' > /dev/null";
    ASSERT_EQ(system(install.c_str()), 0) << install;
    writeFile(stage_ / "etc/sorvane.conf",
              "BasePort = " + std::to_string(ports_.base()) +
                  ";\nBonjourDisabled = YES;\nHostName = dbhost;\nAddress = 192.0.2.7;\n"
                  "EthernetAddress = \"02:00:5e:10:00:07\";\nLockDirectory = \"" +
                  stage_.string() + "\";\n");
    server_.emplace(stage_ / "bin/sorvinfo", std::vector<std::string>{"noexit"});
    ASSERT_TRUE(waitUntil([this] { return can({"ping"}); })) << server_->errors();
  }
  ~FirstSession() override {
    for (const auto& folder : fs::directory_iterator("/proc")) {
      std::error_code gone;
      const fs::path where = fs::read_symlink(folder.path() / "cwd", gone);
      if (!gone && where == tree_.path()) {
        ADD_FAILURE() << "left behind: " << folder.path();
        ::kill(std::stoi(folder.path().filename()), SIGKILL);
      }
    }
  }

  /// Whether that command of sorvctl succeeds.
  [[nodiscard]] bool can(std::vector<std::string> words) const {
    return run(stage_ / "bin/sorvctl", std::move(words)).status == 0;
  }

  /// The steps of each terminal of the chapter. The ports of the name server stand for those that
  /// are printed.
  [[nodiscard]] std::vector<std::vector<Step>> terminals() const {
    const fs::path readme = fs::path(SORVANE_SOURCE_DIR) / "README.md";
    std::vector<std::vector<Step>> terminals;
    for (std::string block :
         fencedBlocks(chapter(documentLines(readme), "## A first session"), "console")) {
      replaceAll(block, "20222", std::to_string(ports_.base() + 1));
      replaceAll(block, "20221", std::to_string(ports_.base()));
      terminals.push_back(stepsOf(block));
    }
    return terminals;
  }

  /// Starts a command as a terminal in the checkout does, with the exports of earlier steps.
  [[nodiscard]] std::unique_ptr<Program> start(const std::string& command) const {
    return std::make_unique<Program>(
        "/bin/bash", std::vector<std::string>{"--norc", "-c", "exec 2>&1\n" + exports_ + command},
        Program::Options{"", [this] {
                           if (::chdir(tree_.path().c_str()) != 0) {
                             _exit(126);
                           }
                         }});
  }

  void carryOut(const Step& step) {
    const auto program = start(step.command);
    EXPECT_EQ(program->wait(), 0) << step.command;
    EXPECT_TRUE(isAsPrinted(program->output(), step.output)) << step.command;
    if (step.command.rfind("export ", 0) == 0) {
      exports_ += step.command + "\n";
    }
  }

  FreePorts ports_;
  TemporaryFolder tree_;
  const fs::path stage_ = tree_ / "build/stage";
  std::optional<Program> server_;
  std::string exports_;
};

TEST_F(FirstSession, OfTheReadmePrintsWhatStandsThere) {
  const auto terminals = this->terminals();
  ASSERT_EQ(terminals.size(), 3U) << "of the database, of a client, of the client afterwards";
  const auto& [database, client, afterwards] = std::tie(terminals[0], terminals[1], terminals[2]);
  ASSERT_FALSE(database.empty() || client.empty() || afterwards.empty());

  // The last command of the database's terminal goes on until Ctrl-C.
  std::for_each(database.begin(), database.end() - 1, [this](const Step& step) { carryOut(step); });
  const auto holder = start("exec " + database.back().command);
  ASSERT_TRUE(holder->prints(database.back().output)) << holder->output();
  for (const Step& step : client) {
    carryOut(step);
  }
  EXPECT_TRUE(isAsPrinted(holder->output(), database.back().output));
  holder->signal(SIGINT);
  EXPECT_EQ(holder->wait(), 0);

  // The name server learns of it a moment later; somebody who types is slower.
  ASSERT_TRUE(waitUntil([this] { return !can({"find", "db1"}); }));
  for (const Step& step : afterwards) {
    carryOut(step);
  }
  EXPECT_EQ(server_->wait(), 0) << "the session ends the name server";
}

}  // namespace
}  // namespace sorvane::test
