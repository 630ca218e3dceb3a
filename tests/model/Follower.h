// A client that follows the registry by asking what has changed.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/RegistryModel.h"
#include "platform/Message.h"

namespace sorvane::model {

/// What is told of a name: its texts by their keys. A name that is gone has none.
using Row = std::map<std::string, std::string>;
using Picture = std::map<std::string, Row>;

/// What a client would know that has been told all of that state, without alerts that have lapsed.
[[nodiscard]] Picture pictureOf(const State& state, double now);

class Follower {
 public:
  [[nodiscard]] Message question(const std::string& limit) const;

  /// Takes in the reply to the question. Returns what is wrong with it; the empty text if nothing.
  /// `mayRestart`: the server may have forgotten names that have gone.
  [[nodiscard]] std::string takesIn(std::string_view body, std::size_t limit, bool mayRestart);

  /// The names that the last reply has told, without those that are gone.
  [[nodiscard]] const std::vector<std::string>& told() const { return told_; }
  /// The last reply had all that there was to tell.
  [[nodiscard]] bool knowsAll() const { return knowsAll_; }
  /// What is registered as far as was told, without alerts that have lapsed.
  [[nodiscard]] Picture picture(double now) const;

 private:
  [[nodiscard]] std::string takesInName(const MessageEntry& entry, const std::string& place);

  std::optional<std::string> instance_, sequence_;
  Picture picture_;
  std::vector<std::string> told_;
  bool knowsAll_ = false;
};

[[nodiscard]] std::string shown(const Picture& picture);

}  // namespace sorvane::model
