// What the registry promises, written for clarity: no locks, no hash table, no views. It shares no
// code with src/registry, so that a mistake would have to be made twice.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace sorvane::model {

/// A request: the text of each key, or nothing where the value is no text.
using Request = std::map<std::string, std::optional<std::string>>;

/// Keys and texts of a reply, in their order.
using Texts = std::vector<std::pair<std::string, std::string>>;

/// The host that the name server runs on, and what its settings say.
struct Host {
  std::string name = {};
  std::string address = {};
  std::string ethernetAddress = {};
  std::string version = {};  ///< of the name server
  std::string system = {};   ///< the operating system and its version
  bool servesItselfAlone = false;
  bool takesRemoteControl = true;
  bool takesRemoteRegistration = true;
  std::int64_t basePort = 0;
  std::map<std::string, std::string> aliases = {};  ///< by address
};

struct Reply {
  enum class Kind : std::uint8_t {
    dictionary,     ///< the texts
    request,        ///< the request, byte for byte
    none,           ///< no dictionary
    raised,         ///< no dictionary, since the command could not be carried out
    notRecognised,  ///< no command of the registry
    endOfProcess,   ///< no reply, and the process ends
    held,           ///< no reply yet; the text "held" has the seconds
  };
  Kind kind = Kind::none;
  Texts texts = {};
  /// "result" and "alerts" are lists whose order is free. Here they are sorted.
  bool hasLists = false;
  /// "result" is the time of the last change.
  bool hasTime = false;
  /// The watchers are to be told of a change.
  bool isChange = false;
};

/// One connected peer, or one that has left a port behind.
struct Record {
  std::optional<std::string> key = {}, name = {}, address = {}, host = {}, number = {}, type = {};
  std::optional<std::string> status = {};
  std::optional<std::string> alert = {};
  double alertTime = 0.0;
  bool isDirty = true;
  unsigned watches = 0;  ///< how often it has asked to be a watcher
  bool isConnected = true;

  auto operator<=>(const Record&) const = default;
};

using List = std::vector<std::string>;

/// Everything that the registry keeps. Plain data.
struct State {
  std::map<int, Record> records;     ///< by connection; the server's own two have negative numbers
  std::map<std::string, int> ports;  ///< the connection that a name leads to
  std::int64_t nextNumber = 0;       ///< 0 before the first was handed out
  double lastChange = 0.0;           ///< seconds
  int refreshNumber = 0;
  std::optional<List> hosts, alternateHosts;  ///< nothing until first needed
  std::optional<std::string> lastHost;
  std::optional<List> cachedStates, cachedAlerts;  ///< sorted; nothing: to be made anew

  auto operator<=>(const State&) const = default;
};

/// True when the text of the key is that word, in any letter case.
[[nodiscard]] bool says(const Request& request, const std::string& key, const std::string& word);

/// Returns how a request is recognised: the key or the word of "action" that its row of the list in
/// docs/protocol.md begins with. Empty: it is no command of the registry.
[[nodiscard]] std::string commandOf(const Request& request);

/// True when the settings may reserve the command for this machine.
[[nodiscard]] bool changesRegistry(const std::string& command);
[[nodiscard]] bool endsProcess(const std::string& command);

[[nodiscard]] std::string shown(const State& state);
[[nodiscard]] std::string shown(const Request& request);
[[nodiscard]] std::string shown(const Reply& reply);

/// Joins the entries by "|".
[[nodiscard]] std::string joined(const List& list);

/// The elements of a list that is joined by "|": in their order, then sorted.
[[nodiscard]] List elementsOf(std::string_view joinedList);
[[nodiscard]] List sortedList(std::string_view joinedList);

/// The registry of one name server. It is copied where several futures are tried. Times are seconds
/// from any fixed moment.
class RegistryModel {
 public:
  /// Has the server's own two ports, and nothing else.
  RegistryModel(Host host, double now);

  void connects(int connection, bool isFromThisMachine = true);

  /// Carries out a request of an open connection. If the reply is a change, `tellsWatchers` has to
  /// follow.
  [[nodiscard]] Reply asks(int connection, const Request& request, double now);

  /// Returns the reply to the request of the connection that is held, after a change or for the
  /// last time.
  [[nodiscard]] Reply answersHeld(int connection, bool isLastTime);

  /// Somebody reads the alert of that name. That drops it if its hour is over.
  void readsAlert(const std::string& name, double now);

  /// A change reaches the watchers.
  void tellsWatchers(double now);

  /// The end of a connection has three parts, in this order. Other requests may come in between.
  /// The third part is `tellsWatchers`.
  void beginsToEnd(int connection, double now);
  void losesPorts(int connection);

  /// The process dies, and the next one goes on. These connections were at work: they have ended
  /// then, one after the other. The others go on.
  void dies(const std::vector<int>& atWork, double now);

  [[nodiscard]] const State& state() const { return state_; }
  auto operator<=>(const RegistryModel&) const = default;

 private:
  struct Asked;
  Reply carriesOut(const Asked& asked, double now);

  Reply reconnectPort(const Asked& asked);
  Reply findPort(const Asked& asked) const;
  Reply acceptPort(const Asked& asked);
  Reply newPort(const Asked& asked);
  Reply needsRefresh(const Asked& asked);
  Reply setAlertState(const Asked& asked, double now);
  Reply setDatabaseState(const Asked& asked);
  Reply databaseStates(double now);
  Reply watchPortChanges(const Asked& asked);
  Reply didPortsChange(const Asked& asked);
  Reply awaitPortChanges(const Asked& asked);
  Reply changeTimestamp() const;
  Reply forgetPort(const Asked& asked);
  Reply sorvexecConnectHost(const Asked& asked);
  Reply hostInfo(const Asked& asked);
  Reply hostList(const Asked& asked);

  void registers(int connection, const Asked& asked, const std::string& name,
                 const std::string& number);
  void enters(const std::string& name, int connection);
  void removes(const std::string& name);
  void forgetsIfGone(int connection);

  std::shared_ptr<const Host> host_;       // shared by all copies
  std::map<int, bool> isFromThisMachine_;  // of the open connections
  State state_;
};

}  // namespace sorvane::model
