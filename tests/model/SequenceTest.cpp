// Random sequences of requests, connects and closes: the model explains every reply and every
// state of the registry.
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <optional>
#include <sstream>
#include <vector>

#include "model/Trial.h"

namespace sorvane::model {
namespace {

using Steps = std::vector<Step>;

#ifdef SORVANE_PLAIN
constexpr std::uint64_t kSteps = 1'000'000;
#else
constexpr std::uint64_t kSteps = 100'000;
#endif
constexpr std::size_t kStepsOfSequence = 1000;
constexpr std::size_t kStepsOfWideSequence = 4000;
constexpr std::size_t kFullComparisons = 32;  // one every so many steps
constexpr std::size_t kFullWideComparisons = 500;
constexpr std::size_t kShownSteps = 60;

/// A server, those who connect to it, and what they do.
struct Sequence {
  Setting setting = {};
  Vocabulary vocabulary = {};
  std::size_t mostConnections = 0;
  std::size_t fullComparisons = kFullComparisons;
  Steps steps = {};
};

std::vector<std::string> fewNames(Random& random) {
  static const std::vector<std::string> pool = {
      "db1",           "db2",
      "DB1",           "",
      "sorvexec",      "SorvExec",
      "VN_nameserver", "VN_infoserver",
      "größe",         "a name that is too long for a slot of the table"};
  std::vector<std::string> names = {"db1"};
  for (const std::string& name : pool) {
    if (name != "db1" && random.percent(40)) {
      names.push_back(name);
    }
  }
  return names;
}

Setting drawnSetting(Random& random) {
  static const std::vector<std::size_t> remembered = {0, 1, 2, 20, 65536, 65536};
  static const std::vector<std::size_t> journalBytes = {500, 10000};
  const bool isAlone = random.percent(20);
  return {.host = {.name = "testhost",
                   .address = isAlone ? "127.0.0.1" : "10.1.2.3",
                   .ethernetAddress = "00:11:22:33:44:55",
                   .servesItselfAlone = isAlone,
                   .takesRemoteControl = random.percent(50),
                   .takesRemoteRegistration = random.percent(50),
                   .basePort = 5000},
          .isVerbose = random.percent(5),
          .remembersGone = random.oneOf(remembered),
          .journalBytes =
              random.percent(25) ? std::optional(random.oneOf(journalBytes)) : std::nullopt};
}

/// Takes none, one or several of the connections away.
std::vector<int> drawnOf(std::vector<int>& open, Random& random) {
  static const std::vector<std::size_t> most = {0, 1, 1, 4};
  std::vector<int> drawn;
  for (std::size_t left = random.oneOf(most); left > 0 && !open.empty(); --left) {
    const auto at = open.begin() + static_cast<std::ptrdiff_t>(random.below(open.size()));
    drawn.push_back(*at);
    open.erase(at);
  }
  return drawn;
}

Steps drawnSteps(const RequestMaker& maker, std::size_t count, std::size_t mostConnections,
                 bool mayDie, Random& random) {
  const std::vector<double> pauses = {0.5, 1800.0, 3600.0, 3600.5};
  const std::vector<std::size_t> limits = {1, 1, 2, 3, 10, 100, 10000};
  Steps steps;
  std::vector<int> open;
  int made = 0;
  for (std::size_t i = 0; i < count; ++i) {
    Step step;
    step.later = random.percent(20) ? random.oneOf(pauses) : 0.0;
    if (random.percent(4)) {
      step.kind = Step::Kind::follows;
      step.connection = static_cast<int>(random.below(kFollowers));
      step.limit = random.oneOf(limits);
    } else if (random.percent(1)) {
      step.kind = Step::Kind::goesOn;
    } else if (mayDie && random.percent(1)) {
      step.kind = Step::Kind::dies;
      step.atWork = drawnOf(open, random);
    } else if (open.empty() || (open.size() < mostConnections && random.percent(4))) {
      step.kind = Step::Kind::connects;
      step.connection = made++;
      step.isFromThisMachine = random.percent(80);
      open.push_back(step.connection);
    } else {
      const std::size_t index = random.below(open.size());
      step.connection = open[index];
      if (random.percent(2)) {
        step.kind = Step::Kind::closes;
        open.erase(open.begin() + static_cast<std::ptrdiff_t>(index));
      } else {
        step.request = maker.make(random);
      }
    }
    steps.push_back(std::move(step));
  }
  return steps;
}

Sequence drawnSequence(std::uint64_t seed) {
  Random random(seed);
  Sequence sequence{.setting = drawnSetting(random)};
  const bool isWide = random.percent(5);
  sequence.vocabulary = {.names = fewNames(random),
                         .ethernetAddress = sequence.setting.host.ethernetAddress,
                         .mayEndProcess = true,
                         .mayBeHeld = true,
                         .oddPercent = 10};
  sequence.mostConnections = 1 + random.below(10);
  if (isWide) {
    // The table of the names grows and shrinks.
    for (int i = 0; i < 300; ++i) {
      sequence.vocabulary.names.push_back("name" + std::to_string(i));
    }
    sequence.mostConnections = 60;
    sequence.fullComparisons = kFullWideComparisons;
  }
  const RequestMaker maker(sequence.vocabulary, random);
  sequence.steps =
      drawnSteps(maker, isWide ? kStepsOfWideSequence : kStepsOfSequence, sequence.mostConnections,
                 sequence.setting.journalBytes.has_value(), random);
  return sequence;
}

/// What differs, and after how many steps.
struct Failure {
  std::size_t steps = 0;
  std::string difference = {};  ///< empty: nothing differs
};

std::set<std::string> namesOf(const Sequence& sequence) {
  const std::vector<std::string>& names = sequence.vocabulary.names;
  std::set<std::string> all(names.begin(), names.end());
  all.insert({"VN_infoserver", "VN_nameserver"});
  return all;
}

Failure run(const Sequence& sequence, const Steps& steps, std::size_t fullComparisons) {
  Trial trial(sequence.setting, namesOf(sequence));
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const bool isFull = i % fullComparisons == 0 || i + 1 == steps.size();
    std::string difference =
        trial.carriesOut(steps[i], isFull ? Trial::Compared::all : Trial::Compared::reply);
    if (!difference.empty()) {
      return {i + 1, difference};
    }
  }
  return {};
}

/// Leaves out what the failure does not need: halves first, then ever smaller parts.
Steps shortened(const Sequence& sequence, Steps steps) {
  const auto cutAtFailure = [&] {
    const Failure failure = run(sequence, steps, 1);
    if (!failure.difference.empty()) {
      steps.resize(failure.steps);
    }
  };
  cutAtFailure();
  for (std::size_t part = steps.size() / 2; part > 0; part /= 2) {
    for (std::size_t begin = 0; begin < steps.size();) {
      Steps fewer(steps.begin(), steps.begin() + static_cast<std::ptrdiff_t>(begin));
      const std::size_t end = std::min(begin + part, steps.size());
      fewer.insert(fewer.end(), steps.begin() + static_cast<std::ptrdiff_t>(end), steps.end());
      if (run(sequence, fewer, 1).difference.empty()) {
        begin = end;
      } else {
        steps = std::move(fewer);
        cutAtFailure();
      }
    }
  }
  return steps;
}

std::string report(const Sequence& sequence) {
  const Steps steps = shortened(sequence, sequence.steps);
  std::ostringstream text;
  text << "The host serves " << (sequence.setting.host.servesItselfAlone ? "itself alone" : "all")
       << ", takes remote registration: " << sequence.setting.host.takesRemoteRegistration
       << ", remote control: " << sequence.setting.host.takesRemoteControl << "\n";
  const std::size_t first = steps.size() > kShownSteps ? steps.size() - kShownSteps : 0;
  text << steps.size() << " steps, from number " << first << ":\n";
  for (std::size_t i = first; i < steps.size(); ++i) {
    text << "  " << i << ": " << shown(steps[i]) << "\n";
  }
  text << run(sequence, steps, 1).difference;
  return text.str();
}

class RegistrySequence : public testing::Test {
 protected:
  /// True when nothing differs. Otherwise the test fails, and its message has a short sequence.
  bool agrees(const Sequence& sequence, std::uint64_t seed) {
    const Failure failure = run(sequence, sequence.steps, sequence.fullComparisons);
    console_.clear();
    test::loggedLines.clear();
    if (!failure.difference.empty()) {
      ADD_FAILURE() << "SORVANE_MODEL_SEED=" << seed << " fails after " << failure.steps
                    << " steps. What is left of them:\n"
                    << report(sequence);
    }
    return failure.difference.empty();
  }

 private:
  test::ConsoleLines console_;
  test::MovedClock clock_;
};

TEST_F(RegistrySequence, IsWhatTheModelTellsReplyByReply) {
  const std::uint64_t seed = seedOfThisRun();
  const std::uint64_t steps = numberFromEnvironment("SORVANE_MODEL_STEPS", kSteps);
  std::cout << "SORVANE_MODEL_SEED=" << seed << std::endl;
  std::uint64_t done = 0;
  for (std::uint64_t i = 0; done < steps; ++i) {
    const Sequence sequence = drawnSequence(seed + i);
    if (!agrees(sequence, seed + i)) {
      return;
    }
    done += sequence.steps.size();
  }
}

TEST_F(RegistrySequence, GoesOnWhereTheRefreshNumberBeginsAgain) {
  constexpr std::size_t kRefreshes = 10005;  // the last number is 10000
  const Entries refresh = {{"action", std::string("needsRefresh\0", 13), "needsRefresh"},
                           {"force", std::string("yes\0", 4), "yes"}};
  const Entries question = {{"action", std::string("changeTimestamp\0", 16), "changeTimestamp"}};
  Sequence sequence{.setting = {.host = {.name = "testhost", .basePort = 5000}}};
  sequence.fullComparisons = kFullWideComparisons;
  sequence.steps = {{.kind = Step::Kind::connects}};
  for (std::size_t i = 0; i < kRefreshes; ++i) {
    sequence.steps.push_back({.request = refresh});
    if (i + 10 > kRefreshes) {
      sequence.steps.push_back({.request = question});
    }
  }
  EXPECT_TRUE(agrees(sequence, 0));
}

}  // namespace
}  // namespace sorvane::model
