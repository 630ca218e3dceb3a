// sorvctl and a name server of the test's own.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "integration/Daemon.h"
#include "support/Program.h"

namespace sorvane::test {

using Arguments = std::vector<std::string>;

class Sorvctl : public testing::Test {
 protected:
  Sorvctl() { server.start(); }

  [[nodiscard]] Arguments toServer(Arguments arguments) const {
    arguments.insert(arguments.begin(), {"--port", std::to_string(server.basePort())});
    return arguments;
  }
  /// Runs it to its end, against the name server.
  [[nodiscard]] Outcome tool(const Arguments& arguments, std::string input = {}) const {
    return run(builtProgram("sorvctl"), toServer(arguments), std::move(input));
  }
  /// What it prints with `--json`.
  [[nodiscard]] nlohmann::json json(Arguments arguments) const {
    arguments.insert(arguments.begin(), "--json");
    const Outcome outcome = tool(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    return nlohmann::json::parse(outcome.output);
  }
  [[nodiscard]] std::unique_ptr<Program> start(const Arguments& arguments) const {
    return std::make_unique<Program>(builtProgram("sorvctl"), toServer(arguments));
  }

  Daemon server;
};

/// Failures are one line on standard error that begins with the program's name.
inline void expectFailure(const Outcome& outcome, int status, const std::string& text) {
  EXPECT_EQ(outcome.status, status) << outcome.errors;
  EXPECT_EQ(outcome.errors.find("sorvctl: "), 0U) << outcome.errors;
  EXPECT_NE(outcome.errors.find(text), std::string::npos) << outcome.errors;
  EXPECT_EQ(outcome.errors.find('\n'), outcome.errors.size() - 1) << outcome.errors;
  EXPECT_EQ(outcome.output, "");
}

}  // namespace sorvane::test
