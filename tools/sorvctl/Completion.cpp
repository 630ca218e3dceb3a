#include "sorvctl/Completion.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <optional>
#include <string_view>
#include <utility>

#include "sorvctl/Arguments.h"
#include "sorvctl/CommandTree.h"
#include "sorvctl/Failure.h"
#include "sorvctl/TerminalText.h"

namespace sorvctl {

namespace {

constexpr std::size_t kMostCandidates = 1000;

bool takesValue(const CLI::Option& option) { return option.get_items_expected_min() > 0; }

/// An option with the value that a word gives to it.
struct OptionWord {
  CLI::Option* option = nullptr;     // null: there is no such option
  std::string name;                  // as it was written
  std::optional<std::string> value;  // what stands behind "="
};

OptionWord readOption(CLI::App& at, const std::string& word) {
  const std::size_t end = std::min(word.find('='), word.size());
  OptionWord read{nullptr, word.substr(0, end), std::nullopt};
  read.option = at.get_option_no_throw(read.name);
  if (end < word.size()) {
    read.value = word.substr(end + 1);
  }
  return read;
}

bool beginsLikeAnOption(std::string_view word) { return word.starts_with('-'); }

/// The place in the tree of commands to which the words lead.
class Place {
 public:
  explicit Place(const std::vector<std::string>& words) : tree_(words), at_(&tree_.application()) {
    for (auto word = words.begin(); word + 1 < words.end(); ++word) {
      pass(*word);
    }
  }

  [[nodiscard]] std::vector<Candidate> candidates(const std::string& word,
                                                  const DatabaseNames& names) {
    if (expecting_ != nullptr) {
      return valuesOf(*expecting_, "", names);
    }
    if (!optionsEnded_ && beginsLikeAnOption(word)) {
      const OptionWord option = readOption(*at_, word);
      if (!option.value) {
        return options();
      }
      return option.option != nullptr ? valuesOf(*option.option, option.name + "=", names)
                                      : std::vector<Candidate>{};
    }
    std::vector<Candidate> all = commands();
    if (CLI::Option* const argument = currentArgument()) {
      for (Candidate& each : valuesOf(*argument, "", names)) {
        all.push_back(std::move(each));
      }
    }
    return all;
  }

 private:
  void pass(const std::string& word) {
    if (expecting_ != nullptr) {
      tree_.note(*std::exchange(expecting_, nullptr), word);
    } else if (optionsEnded_) {
      ++arguments_;
    } else if (word == "--") {
      optionsEnded_ = true;
    } else if (beginsLikeAnOption(word)) {
      passOption(readOption(*at_, word));
    } else if (CLI::App* const inner = arguments_ == 0 ? innerCommand(*at_, word) : nullptr) {
      at_ = inner;
    } else {
      ++arguments_;
    }
  }

  void passOption(const OptionWord& word) {
    if (word.option != nullptr && word.value) {
      tree_.note(*word.option, *word.value);
    } else if (word.option != nullptr && takesValue(*word.option)) {
      expecting_ = word.option;
    }
  }

  /// The argument that a word here is for. Null when there is none.
  [[nodiscard]] CLI::Option* currentArgument() const {
    std::size_t passed = 0;
    for (CLI::Option* const each : at_->get_options()) {
      if (each->get_positional()) {
        passed += static_cast<std::size_t>(each->get_items_expected_max());
        if (arguments_ < passed) {
          return each;
        }
      }
    }
    return nullptr;
  }

  [[nodiscard]] std::vector<Candidate> commands() const {
    std::vector<Candidate> all;
    if (arguments_ == 0 && !optionsEnded_) {
      for (const CLI::App* const each :
           at_->get_subcommands([](const CLI::App* /*any*/) { return true; })) {
        all.push_back({each->get_name(), each->get_description()});
      }
    }
    return all;
  }

  [[nodiscard]] std::vector<Candidate> options() const {
    std::vector<Candidate> all;
    for (const CLI::Option* const each : at_->get_options()) {
      for (const std::string& name : each->get_lnames()) {
        all.push_back({"--" + name, each->get_description()});
      }
    }
    return all;
  }

  /// The values that an option or argument accepts, each behind `before`. The parser's help tells
  /// them in braces.
  [[nodiscard]] std::vector<Candidate> valuesOf(CLI::Option& option, const std::string& before,
                                                const DatabaseNames& names) const {
    std::vector<Candidate> all;
    if (const auto which = databasesNamedBy(option)) {
      for (std::string& name : names(tree_.options(), *which)) {
        all.push_back({std::move(name), ""});
      }
      return all;
    }
    const std::string type = option.get_type_name();
    const std::size_t begin = type.find('{');
    const std::size_t end = type.rfind('}');
    if (begin < end && end != std::string::npos) {
      for (const std::string& value :
           CLI::detail::split(type.substr(begin + 1, end - begin - 1), ',')) {
        all.push_back({before + value, ""});
      }
    }
    return all;
  }

  CommandTree tree_;
  CLI::App* at_;
  CLI::Option* expecting_ = nullptr;  // the option whose value is the next word
  bool optionsEnded_ = false;         // by "--"
  std::size_t arguments_ = 0;         // those passed since the last command
};

/// Whether a terminal shows the text as it is.
bool isPlain(const std::string& text) {
  std::string plain = text;
  std::erase(plain, '\\');
  return escaped(plain) == plain;
}

}  // namespace

std::vector<Candidate> candidates(const std::vector<std::string>& words,
                                  const DatabaseNames& names) {
  if (words.empty()) {
    return {};
  }
  const std::string& word = words.back();
  std::vector<Candidate> all = Place(words).candidates(word, names);
  std::erase_if(all, [&word](const Candidate& each) {
    return !each.text.starts_with(word) || !isPlain(each.text);
  });
  all.resize(std::min(all.size(), kMostCandidates));
  return all;
}

}  // namespace sorvctl
