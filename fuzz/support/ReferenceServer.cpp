#include "support/ReferenceServer.h"

#include <algorithm>
#include <cstdio>
#include <utility>

namespace sorvane::fuzz {
namespace {

constexpr double kAlertSeconds = 3600;
constexpr std::size_t kLongAlertList = 65536;
constexpr const char* kSettings[] = {"changePreferences", "startDatabases", "loginDisplay",
                                     "databases"};

std::string lower(std::string text) {
  for (char& c : text) {
    c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return text;
}

bool has(const Entries& request, std::string_view key) { return find(request, key) != nullptr; }

std::string actionOf(const Entries& request) {
  const std::string* const value = find(request, "action");
  return value == nullptr ? std::string() : lower(value->substr(0, value->find('\0')));
}

ReferenceEntry text(const std::string& key, const std::string& value) {
  return {key, value + '\0'};
}

void append(std::string& list, const std::string& entry) {
  list += (list.empty() ? "" : "|") + entry;
}

}  // namespace

std::string commandOf(const Entries& request) {
  for (const char* key : {"ping", "reconnectPort", "findPort", "acceptPort", "terminate"}) {
    if (has(request, key)) {
      return key;
    }
  }
  const std::string action = actionOf(request);
  if (action == "restart") {
    return action;
  }
  if (has(request, "newPort") && has(request, "portHost") && has(request, "portName") &&
      has(request, "portType")) {
    return "newPort";
  }
  for (const char* word :
       {"needsRefresh", "setAlertState", "setDatabaseState", "databaseStates", "watchPortChanges",
        "didPortsChange", "changeTimestamp", "sorvexecConnectHost", "hostInfo", "hostList"}) {
    if (action == lower(word)) {
      return word;
    }
  }
  return {};
}

bool changesRegistry(const std::string& command) {
  constexpr std::string_view kChanging[] = {
      "reconnectPort",    "acceptPort",         "newPort", "needsRefresh", "setAlertState",
      "setDatabaseState", "sorvexecConnectHost"};
  return std::find(std::begin(kChanging), std::end(kChanging), command) != std::end(kChanging);
}

bool endsServer(const std::string& command) {
  return command == "terminate" || command == "restart";
}

ReferenceServer::ReferenceServer(ReferenceHost host, Order order)
    : host_(std::move(host)), order_(std::move(order)) {}

std::string ReferenceServer::needed(const Entries& request, std::string_view key) {
  const std::string* const value = find(request, key);
  const auto text = value == nullptr ? std::nullopt : textOf(*value);
  return text ? *text : throw Raised();
}

std::optional<std::string> ReferenceServer::optional(const Entries& request, std::string_view key) {
  return has(request, key) ? std::optional(needed(request, key)) : std::nullopt;
}

Entries ReferenceServer::result(const std::string& words) { return {text("result", words)}; }

std::optional<Entries> ReferenceServer::ask(const Record& record, const Entries& request,
                                            double time) {
  now_ = time;
  const std::string command = commandOf(request);
  if (command == "ping") {
    return Entries();
  }
  if (record->isRemote && (changesRegistry(command) || endsServer(command))) {
    return std::nullopt;
  }
  try {
    return command.empty() ? preferences(record, request) : carryOut(command, record, request);
  } catch (const Raised&) {
    return command.empty() ? std::optional(Entries()) : std::nullopt;
  }
}

std::optional<Entries> ReferenceServer::carryOut(const std::string& command, const Record& record,
                                                 const Entries& request) {
  if (command == "reconnectPort") {
    return reconnectPort(record, request);
  }
  if (command == "findPort") {
    return findPort(request);
  }
  if (command == "acceptPort") {
    return acceptPort(record, request);
  }
  if (command == "newPort") {
    return newPort(record, request);
  }
  if (command == "needsRefresh") {
    const std::string* const force = find(request, "force");
    if (force != nullptr && lower(textOf(*force).value_or("")) == "yes") {
      refreshNumber = refreshNumber % 10000 + 1;
    }
    changed();
    return result("success");
  }
  if (command == "setAlertState" || command == "setDatabaseState") {
    return setText(request, command == "setAlertState");
  }
  if (command == "databaseStates") {
    return databaseStates();
  }
  if (command == "watchPortChanges") {
    watch(record);
    return result("succeed");
  }
  if (command == "didPortsChange") {
    return didPortsChange(record);
  }
  if (command == "changeTimestamp") {
    char time[400];
    std::snprintf(time, sizeof time, "%f", lastChange);
    Entries reply = result(time);
    if (refreshNumber > 0) {
      reply.push_back(text("force_refresh", std::to_string(refreshNumber)));
    }
    return reply;
  }
  if (command == "sorvexecConnectHost") {
    return connectLauncher(request);
  }
  (void)optional(request, "hostAddress");
  return result(command == "hostList"
                    ? ""
                    : host_.name + "|" + host_.ethernetAddress + "|" + host_.address + "|" +
                          host_.productVersion + "|" + host_.systemVersion);
}

void ReferenceServer::fill(ReferenceRecord& record, const Entries& request,
                           std::string_view nameKey) {
  const std::string name = needed(request, nameKey);
  const std::string host = needed(request, "portHost");
  const std::string type = needed(request, "portType");
  const auto address = optional(request, "portHostAddress");
  record.name = name;
  record.host = host;
  record.type = type;
  record.address = address ? address : record.address;
}

Entries ReferenceServer::newPort(const Record& record, const Entries& request) {
  ReferenceRecord filled = *record;
  fill(filled, request, "portName");
  if (record->number && record->name) {
    ports.erase(*record->name);
  }
  if (lower(*filled.name) == "sorvexec") {
    filled.number = std::to_string(host_.basePort - 1);
  } else {
    nextNumber = nextNumber == 0 ? host_.basePort + 1 : nextNumber;
    filled.number = std::to_string(nextNumber++);
  }
  *record = filled;
  return {text("portNumber", *record->number)};
}

Entries ReferenceServer::acceptPort(const Record& record, const Entries& request) {
  if (!record->name) {
    throw Raised();
  }
  ports[*record->name] = record;
  changed();
  return request;
}

Entries ReferenceServer::reconnectPort(const Record& record, const Entries& request) {
  ReferenceRecord filled = *record;
  filled.number = needed(request, "portNumber");
  fill(filled, request, "reconnectPort");
  *record = filled;
  return acceptPort(record, request);
}

Entries ReferenceServer::findPort(const Entries& request) {
  const std::string name = needed(request, "findPort");
  const std::string host = needed(request, "portHost");
  const std::string address = optional(request, "portHostAddress").value_or(host);
  const auto found = ports.find(name);
  if (found == ports.end()) {
    return {text("notFound", "notFound")};
  }
  const ReferenceRecord& record = *found->second;
  Entries reply = {text("portNumber", *record.number), text("portName", *record.name),
                   text("portHostAddress", address)};
  if (record.host) {
    reply.push_back(text("portHost", *record.host));
  }
  if (record.type) {
    reply.push_back(text("portType", *record.type));
  }
  return reply;
}

Entries ReferenceServer::setText(const Entries& request, bool isAlert) {
  const bool isComplete = has(request, "state") && has(request, "databaseName");
  if (isComplete) {
    const std::string words = needed(request, "state");
    const auto found = ports.find(needed(request, "databaseName"));
    if (found != ports.end()) {
      ReferenceRecord& record = *found->second;
      (isAlert ? record.alert : record.state) = words;
      record.alertTime = isAlert ? now_ : record.alertTime;
    }
  }
  (isAlert ? cached_.alerts : cached_.states).reset();
  if (!isComplete) {
    return result("failed");
  }
  changed();
  return result("success");
}

Entries ReferenceServer::databaseStates() {
  if (!cached_.states || !cached_.alerts) {
    cached_ = {"", ""};
    for (const Record& record : order_()) {
      const std::string& name = *record->name;
      if (name == "sorvexec" || name == "VN_nameserver" || name == "VN_infoserver") {
        continue;
      }
      append(*cached_.states, name + ":" + record->state.value_or("running"));
      if (record->alert && now_ > record->alertTime + kAlertSeconds) {
        record->alert.reset();
      }
      if (record->alert) {
        append(*cached_.alerts, name + ":" + *record->alert);
      }
    }
  }
  return {text("result", *cached_.states), text("alerts", *cached_.alerts)};
}

Entries ReferenceServer::didPortsChange(const Record& record) {
  if (record->timesWatching == 0) {
    watch(record);
  }
  return result(std::exchange(record->isDirty, false) ? "YES" : "NO");
}

// No command puts a host on the list of those who may be put there once more: it stays empty.
std::optional<Entries> ReferenceServer::connectLauncher(const Entries& request) {
  if (!has(request, "hostName") || !has(request, "portHostAddress")) {
    return std::nullopt;
  }
  if (!has(request, "ethernetAddress")) {
    return result("failed");
  }
  (void)needed(request, "hostName");
  (void)needed(request, "portHostAddress");
  const bool isThisHost = needed(request, "ethernetAddress") == host_.ethernetAddress;
  return result(isThisHost ? "connected" : "failed");
}

std::optional<Entries> ReferenceServer::preferences(const Record& record, const Entries& request) {
  const std::string action = actionOf(request);
  const bool sets = action == "set_userpreferences" || action == "set_userpreferences_key";
  if (!sets && action != "get_userpreferences" && action != "get_userpreferences_key") {
    return Entries();
  }
  if ((sets && record->isRemote) || !has(request, "key")) {
    return std::nullopt;
  }
  if (action == "get_userpreferences_key") {
    return preferences_.contains("key") ? throw Raised() : result("group:application");
  }
  const std::string key = needed(request, "key");
  if (action == "set_userpreferences_key") {
    preferences_["key"] = key;
    return result("succeed");
  }
  if (action == "set_userpreferences") {
    Preference entry;
    for (const char* setting : kSettings) {
      if (const auto value = optional(request, setting)) {
        entry[setting] = *value;
      }
    }
    preferences_[key] = entry;
    return result("succeed");
  }
  auto found = preferences_.find(key);
  found = found == preferences_.end() ? preferences_.find(needed(request, "*")) : found;
  if (found == preferences_.end()) {
    return result("none");
  }
  const auto* const entry = std::get_if<Preference>(&found->second);
  if (entry == nullptr) {
    throw Raised();
  }
  Entries reply;
  for (const char* setting : kSettings) {
    if (const auto value = entry->find(setting); value != entry->end()) {
      reply.push_back(text(setting, value->second));
    }
  }
  return reply;
}

void ReferenceServer::watch(const Record& record) {
  watchers.push_back(record);
  ++record->timesWatching;
  record->isDirty = true;
}

void ReferenceServer::changed() {
  cached_.states.reset();
  if (cached_.alerts && cached_.alerts->size() > kLongAlertList) {
    cached_.alerts.reset();
  }
  for (const Record& watcher : watchers) {
    watcher->isDirty = true;
  }
  lastChange = now_;
}

void ReferenceServer::end(const Record& record, double time) {
  now_ = time;
  std::erase(watchers, record);
  record->timesWatching = 0;
  if (record->name) {
    ports.erase(*record->name);
  }
  changed();
}

}  // namespace sorvane::fuzz
