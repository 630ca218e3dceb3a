// What docs/protocol.md promises of the registry and the preferences, written a second time: as
// plainly as it can be, and without code of the product.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "support/ReferenceFrames.h"

namespace sorvane::fuzz {

/// Returns how a request is recognised: the key or the word of "action" that its row of the list in
/// docs/protocol.md begins with; empty for the preferences and for what nobody knows.
[[nodiscard]] std::string commandOf(const Entries& request);

/// True when the settings may reserve the command for this machine.
[[nodiscard]] bool changesRegistry(const std::string& command);
[[nodiscard]] bool endsServer(const std::string& command);

/// Everything about one connection.
struct ReferenceRecord {
  std::optional<std::string> name, number, host, address, type;
  std::optional<std::string> state, alert;
  double alertTime = 0;
  bool isDirty = true;
  int timesWatching = 0;
  bool isRemote = false;
};

/// The facts about the host that replies contain.
struct ReferenceHost {
  std::string name, address, ethernetAddress, productVersion, systemVersion;
  std::int64_t basePort = 0;
};

class ReferenceServer {
 public:
  using Record = std::shared_ptr<ReferenceRecord>;
  /// The records of the map in the order of the product's map, which the model cannot know.
  using Order = std::function<std::vector<Record>()>;

  ReferenceServer(ReferenceHost host, Order order);

  /// Returns the reply, or nothing for "no dictionary". Remote connections change nothing.
  std::optional<Entries> ask(const Record& record, const Entries& request, double time);
  void end(const Record& record, double time);

  // ---- The state, to be compared

  std::map<std::string, Record> ports;
  double lastChange = 0;
  int refreshNumber = 0;
  std::int64_t nextNumber = 0;  ///< 0 before the first
  std::vector<Record> watchers;

 private:
  /// In place of a reply: the command needs a value that the request does not have.
  struct Raised {};
  struct Lists {
    std::optional<std::string> states, alerts;
  };

  static std::string needed(const Entries& request, std::string_view key);
  static std::optional<std::string> optional(const Entries& request, std::string_view key);
  static Entries result(const std::string& text);

  std::optional<Entries> carryOut(const std::string& command, const Record& record,
                                  const Entries& request);
  Entries newPort(const Record& record, const Entries& request);
  Entries acceptPort(const Record& record, const Entries& request);
  Entries reconnectPort(const Record& record, const Entries& request);
  Entries findPort(const Entries& request);
  Entries setText(const Entries& request, bool isAlert);
  Entries databaseStates();
  Entries didPortsChange(const Record& record);
  std::optional<Entries> connectLauncher(const Entries& request);
  std::optional<Entries> preferences(const Record& record, const Entries& request);
  void fill(ReferenceRecord& record, const Entries& request, std::string_view nameKey);
  void watch(const Record& record);
  void changed();

  const ReferenceHost host_;
  const Order order_;
  double now_ = 0;
  Lists cached_;
  using Preference = std::map<std::string, std::string>;
  std::map<std::string, std::variant<std::string, Preference>> preferences_;
};

}  // namespace sorvane::fuzz
