// Requests drawn at random.
#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "model/RegistryModel.h"

namespace sorvane::model {

/// A source of numbers that gives the same ones for the same seed on every machine.
class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}

  /// From 0 to `count` less one.
  [[nodiscard]] std::uint64_t below(std::uint64_t count) { return engine_() % count; }
  [[nodiscard]] bool percent(std::uint64_t chance) { return below(100) < chance; }
  template <typename Element>
  [[nodiscard]] const Element& oneOf(const std::vector<Element>& elements) {
    return elements[below(elements.size())];
  }

 private:
  std::mt19937_64 engine_;
};

/// The seed that SORVANE_MODEL_SEED tells, or another one each time.
[[nodiscard]] std::uint64_t seedOfThisRun();
/// The number in a variable of the environment, or `otherwise`.
[[nodiscard]] std::uint64_t numberFromEnvironment(const char* variable, std::uint64_t otherwise);

/// An entry of a request: the bytes that travel, and the text that they mean. Nothing: no text.
struct Entry {
  std::string key;
  std::string bytes;
  std::optional<std::string> text;
};

using Entries = std::vector<Entry>;

[[nodiscard]] Request requestOf(const Entries& entries);
/// The body of the request's frame.
[[nodiscard]] std::string bodyOf(const Entries& entries);

/// What the requests are about.
struct Vocabulary {
  std::vector<std::string> names = {};
  std::string ethernetAddress = {};  ///< of the server's host
  bool mayEndProcess = false;        ///< requests to end the server are among them
  bool mayBeHeld = false;            ///< requests whose reply may be held are among them
  std::uint64_t oddPercent = 10;     ///< requests that lack something, or have too much, or no text
};

class RequestMaker {
 public:
  /// Draws how often each command comes, so that two makers make different mixtures.
  RequestMaker(Vocabulary vocabulary, Random& random);

  /// A request that has the given command, or, if odd, perhaps another one.
  [[nodiscard]] Entries make(Random& random) const;

  /// Draws this command `times` as often as an average one.
  void prefer(const std::string& command, std::uint64_t times);

 private:
  void add(Entries& entries, std::size_t command, bool isOdd, Random& random) const;
  [[nodiscard]] std::string textFor(const std::string& kind, Random& random) const;

  Vocabulary vocabulary_;
  std::vector<std::uint64_t> weights_;  // of the commands
  std::uint64_t sum_ = 0;
};

}  // namespace sorvane::model
