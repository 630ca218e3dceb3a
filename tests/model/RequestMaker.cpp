#include "model/RequestMaker.h"

#include <algorithm>
#include <cstdlib>

#include "support/WireBytes.h"

namespace sorvane::model {
namespace {

struct Key {
  const char* key;
  const char* kind;  ///< of its text, see `textFor`
  bool isOptional = false;
};

struct Command {
  const char* name;
  bool isAction;
  std::vector<Key> keys;
};

const std::vector<Command>& commands() {
  static const std::vector<Command> all = {
      {"newPort",
       false,
       {{"newPort", "any"},
        {"portName", "name"},
        {"portHost", "host"},
        {"portType", "type"},
        {"portHostAddress", "address", true}}},
      {"acceptPort", false, {{"acceptPort", "any"}}},
      {"reconnectPort",
       false,
       {{"reconnectPort", "name"},
        {"portNumber", "number"},
        {"portHost", "host"},
        {"portType", "type"},
        {"portHostAddress", "address", true}}},
      {"findPort",
       false,
       {{"findPort", "name"}, {"portHost", "host"}, {"portHostAddress", "address", true}}},
      {"needsRefresh", true, {{"force", "yes", true}}},
      {"setAlertState", true, {{"databaseName", "name"}, {"state", "state"}}},
      {"setDatabaseState", true, {{"databaseName", "name"}, {"state", "state"}}},
      {"databaseStates", true, {}},
      {"watchPortChanges", true, {}},
      {"didPortsChange", true, {}},
      {"changeTimestamp", true, {}},
      {"sorvexecConnectHost",
       true,
       {{"hostName", "host"}, {"portHostAddress", "address"}, {"ethernetAddress", "ethernet"}}},
      {"hostInfo", true, {{"hostAddress", "address", true}}},
      {"hostList", true, {{"hostAddress", "address", true}}},
      {"awaitPortChanges", true, {{"timeout", "seconds", true}}},
      {"forgetPort", true, {{"name", "name"}}},
      {"noSuchAction", true, {}},
      {"terminate", false, {{"terminate", "any"}}},
      {"restart", true, {}},
  };
  return all;
}

std::string withSomeCapitals(std::string word, Random& random) {
  for (char& letter : word) {
    if (letter >= 'a' && letter <= 'z' && random.percent(30)) {
      letter = static_cast<char>(letter - 'a' + 'A');
    }
  }
  return word;
}

/// A text travels with its NUL. A reader does without it, and ignores what follows it.
Entry ordinaryEntry(const std::string& key, const std::string& text) {
  return {key, text + '\0', text};
}

Entry oddEntry(const std::string& key, const std::string& text, Random& random) {
  switch (random.below(6)) {
    case 0:
      return {key, "", std::nullopt};
    case 1:
      return {key, std::string("\xff\xfe\0", 3), std::nullopt};
    case 2:
      return {key, text + std::string("\0\xff|junk", 7), text};
    case 3:
      return text.empty() ? ordinaryEntry(key, text) : Entry{key, text, text};
    default:
      return ordinaryEntry(key, text);
  }
}

}  // namespace

std::uint64_t numberFromEnvironment(const char* variable, std::uint64_t otherwise) {
  const char* const text = getenv(variable);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

std::uint64_t seedOfThisRun() {
  return numberFromEnvironment("SORVANE_MODEL_SEED", std::random_device()());
}

Request requestOf(const Entries& entries) {
  Request request;
  for (const Entry& entry : entries) {
    request.emplace(entry.key, entry.text);
  }
  return request;
}

std::string bodyOf(const Entries& entries) {
  std::string body;
  for (const Entry& entry : entries) {
    body += test::entry(entry.key, entry.bytes);
  }
  return body;
}

RequestMaker::RequestMaker(Vocabulary vocabulary, Random& random)
    : vocabulary_(std::move(vocabulary)) {
  for (const Command& command : commands()) {
    // Some commands do not come at all.
    const std::uint64_t drawn = random.percent(20) ? 0 : 1 + random.below(20);
    const bool mayCome =
        (vocabulary_.mayEndProcess || !endsProcess(command.name)) &&
        (vocabulary_.mayBeHeld || std::string_view(command.name) != "awaitPortChanges");
    weights_.push_back(mayCome ? drawn : 0);
    sum_ += weights_.back();
  }
  prefer("findPort", 1);  // at least one comes
}

void RequestMaker::prefer(const std::string& command, std::uint64_t times) {
  for (std::size_t i = 0; i < weights_.size(); ++i) {
    if (command == commands()[i].name) {
      sum_ += 10 * times - weights_[i];
      weights_[i] = 10 * times;
    }
  }
}

Entries RequestMaker::make(Random& random) const {
  std::uint64_t drawn = random.below(sum_);
  std::size_t command = 0;
  while (drawn >= weights_[command]) {
    drawn -= weights_[command++];
  }
  const bool isOdd = random.percent(vocabulary_.oddPercent);
  Entries entries;
  add(entries, command, isOdd, random);
  if (isOdd && random.percent(30)) {
    std::size_t further = random.below(commands().size());
    if (weights_[further] > 0) {
      add(entries, further, isOdd, random);
    }
  }
  if (isOdd && entries.size() > 1 && random.percent(50)) {
    std::swap(entries.front(), entries.back());
  }
  return entries;
}

void RequestMaker::add(Entries& entries, std::size_t index, bool isOdd, Random& random) const {
  const Command& command = commands()[index];
  const auto put = [&](const std::string& key, const std::string& text) {
    const bool isThere = std::any_of(entries.begin(), entries.end(),
                                     [&](const Entry& entry) { return entry.key == key; });
    if (!isThere) {
      entries.push_back(isOdd ? oddEntry(key, text, random) : ordinaryEntry(key, text));
    }
  };
  if (command.isAction) {
    put("action", random.percent(90) ? command.name : withSomeCapitals(command.name, random));
  }
  for (const Key& key : command.keys) {
    if (key.isOptional ? random.percent(40) : !isOdd || random.percent(85)) {
      put(key.key, textFor(key.kind, random));
    }
  }
}

std::string RequestMaker::textFor(const std::string& kind, Random& random) const {
  static const std::vector<std::string> hosts = {"hostA", "hostB", "localhost", "127.0.0.1", ""};
  static const std::vector<std::string> addresses = {"10.1.1.1",  "10.9.9.9",  "localhost",
                                                     "127.0.0.1", "LOCALHOST", ""};
  static const std::vector<std::string> types = {"db", "", "a type that does not fit in a slot"};
  static const std::vector<std::string> states = {
      "stopping", "", "disk full: 7 of 8", "a state that is longer than the shortest of blocks"};
  static const std::vector<std::string> seconds = {"0",   "1",   "30", "299", "300", "301",
                                                   "000", "012", "-1", "",    "1 s"};
  static const std::vector<std::string> words = {"YES", "yes", "NO", "", "YESS"};
  if (kind == "name") {
    return random.oneOf(vocabulary_.names);
  }
  if (kind == "host") {
    return random.oneOf(hosts);
  }
  if (kind == "address") {
    return random.oneOf(addresses);
  }
  if (kind == "type") {
    return random.oneOf(types);
  }
  if (kind == "number") {
    return std::to_string(4000 + random.below(8));
  }
  if (kind == "state") {
    return random.oneOf(states);
  }
  if (kind == "seconds") {
    return random.oneOf(seconds);
  }
  if (kind == "yes") {
    return random.oneOf(words);
  }
  if (kind == "ethernet") {
    return random.percent(60) ? vocabulary_.ethernetAddress : "00:00:00:00:00:99";
  }
  return random.percent(50) ? "" : "anything";
}

}  // namespace sorvane::model
