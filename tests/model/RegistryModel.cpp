#include "model/RegistryModel.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

namespace sorvane::model {
namespace {

constexpr double kAlertLifetime = 3600.0;      // seconds
constexpr std::size_t kLongAlertList = 65536;  // bytes
constexpr int kLastRefreshNumber = 10000;

/// A request that could not be carried out.
struct Raised {};

char lower(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool equalsIgnoringCase(const std::string& left, const std::string& right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char a, char b) { return lower(a) == lower(b); });
}

bool isThisMachine(const std::string& address) {
  return address == "127.0.0.1" || address == "localhost";
}

Reply dictionary(Texts texts) {
  return {.kind = Reply::Kind::dictionary, .texts = std::move(texts)};
}
Reply result(std::string text) { return dictionary({{"result", std::move(text)}}); }
Reply change(Reply reply) {
  reply.isChange = true;
  return reply;
}
const Reply kTheRequest = {.kind = Reply::Kind::request};
const Reply kNoDictionary = {.kind = Reply::Kind::none};
const Reply kEndOfProcess = {.kind = Reply::Kind::endOfProcess};

}  // namespace

std::string joined(const List& list) {
  std::string text;
  for (std::size_t i = 0; i < list.size(); ++i) {
    text += (i == 0 ? "" : "|") + list[i];
  }
  return text;
}

List elementsOf(std::string_view joinedList) {
  std::string_view list = joinedList;
  List elements;
  while (!list.empty()) {
    const std::size_t end = std::min(list.find('|'), list.size());
    elements.emplace_back(list.substr(0, end));
    list.remove_prefix(std::min(end + 1, list.size()));
  }
  return elements;
}

List sortedList(std::string_view joinedList) {
  List list = elementsOf(joinedList);
  std::sort(list.begin(), list.end());
  return list;
}

bool says(const Request& request, const std::string& key, const std::string& word) {
  const auto found = request.find(key);
  return found != request.end() && found->second && equalsIgnoringCase(*found->second, word);
}

// The first row that fits applies.
std::string commandOf(const Request& request) {
  for (const char* key : {"ping", "reconnectPort", "findPort", "acceptPort", "terminate"}) {
    if (request.contains(key)) {
      return key;
    }
  }
  if (says(request, "action", "restart")) {
    return "restart";
  }
  if (request.contains("newPort") && request.contains("portHost") && request.contains("portName") &&
      request.contains("portType")) {
    return "newPort";
  }
  for (const char* word :
       {"needsRefresh", "setAlertState", "setDatabaseState", "databaseStates", "watchPortChanges",
        "didPortsChange", "changeTimestamp", "sorvexecConnectHost", "hostInfo", "hostList",
        "awaitPortChanges", "portChanges", "forgetPort", "continuity"}) {
    if (says(request, "action", word)) {
      return word;
    }
  }
  return {};
}

bool changesRegistry(const std::string& command) {
  return command == "reconnectPort" || command == "acceptPort" || command == "newPort" ||
         command == "needsRefresh" || command == "setAlertState" || command == "setDatabaseState" ||
         command == "sorvexecConnectHost" || command == "forgetPort";
}

bool endsProcess(const std::string& command) {
  return command == "terminate" || command == "restart";
}

/// One request of one connection.
struct RegistryModel::Asked {
  int connection;
  const Request& request;

  [[nodiscard]] bool has(const std::string& key) const { return request.contains(key); }
  /// Needs the text.
  [[nodiscard]] std::string text(const std::string& key) const {
    const auto found = request.find(key);
    if (found == request.end() || !found->second) {
      throw Raised();
    }
    return *found->second;
  }
  /// May do without the key, but not with a value that is no text.
  [[nodiscard]] std::optional<std::string> optionalText(const std::string& key) const {
    return has(key) ? std::optional(text(key)) : std::nullopt;
  }
  /// Does not mind a value that is no text.
  [[nodiscard]] bool says(const std::string& key, const std::string& word) const {
    return model::says(request, key, word);
  }
};

RegistryModel::RegistryModel(Host host, double now)
    : host_(std::make_shared<const Host>(std::move(host))) {
  state_.lastChange = now;
  int number = 0;
  for (const char* name : {"VN_infoserver", "VN_nameserver"}) {
    Record record;
    record.name = name;
    record.key = *record.name + "@" + host_->name;
    record.number = std::to_string(host_->basePort);
    record.host = host_->name;
    record.address = host_->address;
    state_.records[--number] = record;
    state_.ports[name] = number;
  }
}

void RegistryModel::connects(int connection, bool isFromThisMachine) {
  state_.records[connection] = Record();
  isFromThisMachine_[connection] = isFromThisMachine;
}

Reply RegistryModel::asks(int connection, const Request& request, double now) {
  try {
    return carriesOut({connection, request}, now);
  } catch (const Raised&) {
    return {.kind = Reply::Kind::raised};
  }
}

Reply RegistryModel::carriesOut(const Asked& asked, double now) {
  const std::string command = commandOf(asked.request);
  if (!isFromThisMachine_.at(asked.connection) &&
      ((changesRegistry(command) && !host_->takesRemoteRegistration) ||
       (endsProcess(command) && !host_->takesRemoteControl))) {
    return kNoDictionary;
  }
  if (endsProcess(command)) {
    return kEndOfProcess;
  }
  if (command == "ping") {
    return dictionary({});
  }
  if (command == "reconnectPort") {
    return reconnectPort(asked);
  }
  if (command == "findPort") {
    return findPort(asked);
  }
  if (command == "acceptPort") {
    return acceptPort(asked);
  }
  if (command == "newPort") {
    return newPort(asked);
  }
  if (command == "needsRefresh") {
    return needsRefresh(asked);
  }
  if (command == "setAlertState") {
    return setAlertState(asked, now);
  }
  if (command == "setDatabaseState") {
    return setDatabaseState(asked);
  }
  if (command == "databaseStates") {
    return databaseStates(now);
  }
  if (command == "watchPortChanges") {
    return watchPortChanges(asked);
  }
  if (command == "didPortsChange") {
    return didPortsChange(asked);
  }
  if (command == "changeTimestamp") {
    return changeTimestamp();
  }
  if (command == "sorvexecConnectHost") {
    return sorvexecConnectHost(asked);
  }
  if (command == "hostInfo") {
    return hostInfo(asked);
  }
  if (command == "hostList") {
    return hostList(asked);
  }
  if (command == "awaitPortChanges") {
    return awaitPortChanges(asked);
  }
  if (command == "forgetPort") {
    return forgetPort(asked);
  }
  return {.kind = Reply::Kind::notRecognised};
}

// ---- Ports

Reply RegistryModel::newPort(const Asked& asked) {
  const std::string name = asked.text("portName");
  (void)asked.text("portHost");
  (void)asked.text("portType");
  (void)asked.optionalText("portHostAddress");

  std::int64_t number = host_->basePort - 1;
  if (!equalsIgnoringCase(name, "sorvexec")) {
    number = state_.nextNumber == 0 ? host_->basePort + 1 : state_.nextNumber;
    state_.nextNumber = number + 1;
  }
  const Record& record = state_.records.at(asked.connection);
  if (record.number && record.name) {
    removes(*record.name);  // whoever has it now
  }
  registers(asked.connection, asked, name, std::to_string(number));
  return dictionary({{"portNumber", std::to_string(number)}});
}

Reply RegistryModel::acceptPort(const Asked& asked) {
  const std::optional<std::string> name = state_.records.at(asked.connection).name;
  if (!name) {
    throw Raised();
  }
  enters(*name, asked.connection);
  return change(kTheRequest);
}

Reply RegistryModel::reconnectPort(const Asked& asked) {
  const std::string name = asked.text("reconnectPort");
  const std::string number = asked.text("portNumber");
  (void)asked.text("portHost");
  (void)asked.text("portType");
  (void)asked.optionalText("portHostAddress");

  registers(asked.connection, asked, name, number);
  enters(name, asked.connection);  // an earlier name stays
  return change(kTheRequest);
}

Reply RegistryModel::findPort(const Asked& asked) const {
  const std::string name = asked.text("findPort");
  const std::string host = asked.text("portHost");
  const std::string address = asked.optionalText("portHostAddress").value_or(host);
  if (host_->servesItselfAlone && !isThisMachine(address)) {
    return kNoDictionary;
  }
  const auto found = state_.ports.find(name);
  if (found == state_.ports.end()) {
    return dictionary({{"notFound", "notFound"}});
  }
  const Record& record = state_.records.at(found->second);
  // The address is that of the request, and the name is the latest one of the record.
  Texts texts = {
      {"portNumber", *record.number}, {"portName", *record.name}, {"portHostAddress", address}};
  if (record.host) {
    texts.emplace_back("portHost", *record.host);
  }
  if (record.type) {
    texts.emplace_back("portType", *record.type);
  }
  return dictionary(texts);
}

void RegistryModel::registers(int connection, const Asked& asked, const std::string& name,
                              const std::string& number) {
  Record& record = state_.records.at(connection);
  record.name = name;
  record.number = number;
  record.host = asked.text("portHost");
  record.type = asked.text("portType");
  record.key = name + "@" + *record.host;
  if (const auto address = asked.optionalText("portHostAddress")) {
    record.address = address;
  }
}

void RegistryModel::enters(const std::string& name, int connection) {
  removes(name);
  state_.ports[name] = connection;
}

void RegistryModel::removes(const std::string& name) {
  const auto found = state_.ports.find(name);
  if (found != state_.ports.end()) {
    const int connection = found->second;
    state_.ports.erase(found);
    forgetsIfGone(connection);
  }
}

void RegistryModel::forgetsIfGone(int connection) {
  const bool isOwn = connection < 0;
  if (state_.records.at(connection).isConnected && !isOwn) {
    return;
  }
  for (const auto& [name, holder] : state_.ports) {
    if (holder == connection) {
      return;
    }
  }
  state_.records.erase(connection);
}

Reply RegistryModel::forgetPort(const Asked& asked) {
  const std::string name = asked.text("name");
  const auto found = state_.ports.find(name);
  const bool isOwn = found != state_.ports.end() && found->second < 0;
  if (found == state_.ports.end() || isOwn || state_.records.at(found->second).isConnected) {
    return result("failed");
  }
  removes(name);
  return change(result("success"));
}

// ---- Watchers

void RegistryModel::tellsWatchers(double now) {
  state_.cachedStates.reset();
  if (state_.cachedAlerts && joined(*state_.cachedAlerts).size() > kLongAlertList) {
    state_.cachedAlerts.reset();  // a short list stays
  }
  for (auto& [connection, record] : state_.records) {
    if (record.watches > 0) {
      record.isDirty = true;
    }
  }
  state_.lastChange = now;
}

Reply RegistryModel::watchPortChanges(const Asked& asked) {
  Record& record = state_.records.at(asked.connection);
  ++record.watches;
  record.isDirty = true;
  return result("succeed");
}

Reply RegistryModel::didPortsChange(const Asked& asked) {
  Record& record = state_.records.at(asked.connection);
  if (record.watches == 0) {
    record.watches = 1;
    record.isDirty = true;
  }
  return result(std::exchange(record.isDirty, false) ? "YES" : "NO");
}

Reply RegistryModel::awaitPortChanges(const Asked& asked) {
  Record& record = state_.records.at(asked.connection);
  if (record.watches == 0) {
    record.watches = 1;
    record.isDirty = true;
  }
  const auto given = asked.request.find("timeout");
  std::string digits = given == asked.request.end() ? "" : given->second.value_or("");
  const bool isNumber =
      !digits.empty() && digits.find_first_not_of("0123456789") == std::string::npos;
  digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size()));
  const bool isInRange = isNumber && (digits.size() < 3 || (digits.size() == 3 && digits <= "300"));
  const std::string seconds = !isInRange ? "30" : digits.empty() ? "0" : digits;
  Reply reply = answersHeld(asked.connection, seconds == "0");
  if (reply.kind == Reply::Kind::held) {
    reply.texts = {{"held", seconds}};
  }
  return reply;
}

Reply RegistryModel::answersHeld(int connection, bool isLastTime) {
  if (std::exchange(state_.records.at(connection).isDirty, false)) {
    return result("YES");
  }
  return isLastTime ? result("NO") : Reply{.kind = Reply::Kind::held};
}

Reply RegistryModel::needsRefresh(const Asked& asked) {
  if (asked.says("force", "YES")) {
    state_.refreshNumber =
        state_.refreshNumber == kLastRefreshNumber ? 1 : state_.refreshNumber + 1;
  }
  return change(result("success"));
}

Reply RegistryModel::changeTimestamp() const {
  char time[64];
  std::snprintf(time, sizeof time, "%.6f", state_.lastChange);
  Reply reply = result(time);
  reply.hasTime = true;
  if (state_.refreshNumber > 0) {
    reply.texts.emplace_back("force_refresh", std::to_string(state_.refreshNumber));
  }
  return reply;
}

// ---- States and alerts

Reply RegistryModel::setDatabaseState(const Asked& asked) {
  if (!asked.has("state") || !asked.has("databaseName")) {
    state_.cachedStates.reset();
    return result("failed");
  }
  const std::string status = asked.text("state");
  const auto found = state_.ports.find(asked.text("databaseName"));
  if (found != state_.ports.end()) {
    state_.records.at(found->second).status = status;
  }
  state_.cachedStates.reset();
  return change(result("success"));
}

Reply RegistryModel::setAlertState(const Asked& asked, double now) {
  if (!asked.has("state") || !asked.has("databaseName")) {
    state_.cachedAlerts.reset();
    return result("failed");
  }
  const std::string alert = asked.text("state");
  const auto found = state_.ports.find(asked.text("databaseName"));
  if (found != state_.ports.end()) {
    Record& record = state_.records.at(found->second);
    record.alert = alert;
    record.alertTime = now;
  }
  state_.cachedAlerts.reset();
  return change(result("success"));
}

void RegistryModel::readsAlert(const std::string& name, double now) {
  Record& record = state_.records.at(state_.ports.at(name));
  if (record.alert && now > record.alertTime + kAlertLifetime) {
    record.alert.reset();
  }
}

Reply RegistryModel::databaseStates(double now) {
  if (!state_.cachedStates || !state_.cachedAlerts) {
    List states;
    List alerts;
    for (const auto& [name, connection] : state_.ports) {
      const Record& record = state_.records.at(connection);
      if (*record.name == "sorvexec" || *record.name == "VN_nameserver" ||
          *record.name == "VN_infoserver") {
        continue;
      }
      states.push_back(*record.name + ":" + record.status.value_or("running"));
      readsAlert(name, now);
      if (record.alert) {
        alerts.push_back(*record.name + ":" + *record.alert);
      }
    }
    std::sort(states.begin(), states.end());
    std::sort(alerts.begin(), alerts.end());
    state_.cachedStates = states;
    state_.cachedAlerts = alerts;
  }
  Reply reply = dictionary(
      {{"result", joined(*state_.cachedStates)}, {"alerts", joined(*state_.cachedAlerts)}});
  reply.hasLists = true;
  return reply;
}

// ---- Hosts

Reply RegistryModel::sorvexecConnectHost(const Asked& asked) {
  if (!asked.has("hostName") || !asked.has("portHostAddress")) {
    return kNoDictionary;
  }
  if (!asked.has("ethernetAddress")) {
    return result("failed");
  }
  (void)asked.text("hostName");
  (void)asked.text("portHostAddress");
  if (asked.text("ethernetAddress") != host_->ethernetAddress) {
    return result("failed");
  }
  if (!state_.hosts) {
    state_.hosts.emplace();
    state_.alternateHosts.emplace();
  }
  // A host is listed again only if it is listed already, and nothing lists the first one.
  state_.lastHost = "localhost";
  return result("connected");
}

Reply RegistryModel::hostInfo(const Asked& asked) {
  const std::string address = asked.optionalText("hostAddress").value_or("");
  if (!state_.hosts) {
    state_.hosts.emplace();
  }
  if (host_->servesItselfAlone && !isThisMachine(address)) {
    return result("local only");
  }
  return result(host_->name + "|" + host_->ethernetAddress + "|" + host_->address + "|" +
                host_->version + "|" + host_->system);
}

Reply RegistryModel::hostList(const Asked& asked) {
  const std::string address = asked.optionalText("hostAddress").value_or("");
  if (!state_.hosts) {
    state_.hosts.emplace();
    state_.alternateHosts.emplace();
  }
  const auto& list = host_->aliases.contains(address) ? state_.alternateHosts : state_.hosts;
  return result(joined(list.value_or(List())));
}

// ---- The end of a connection

void RegistryModel::beginsToEnd(int connection, double now) {
  Record& record = state_.records.at(connection);
  record.watches = 0;
  state_.lastChange = now;
}

void RegistryModel::losesPorts(int connection) {
  Record& record = state_.records.at(connection);
  record.isConnected = false;
  isFromThisMachine_.erase(connection);
  if (const auto name = record.name) {
    removes(*name);  // whoever has it now; further names stay
  }
  if (state_.records.contains(connection)) {
    forgetsIfGone(connection);
  }
}

// ---- The death of the process

void RegistryModel::dies(const std::vector<int>& atWork, double now) {
  state_.cachedStates.reset();
  state_.cachedAlerts.reset();
  for (auto& [connection, record] : state_.records) {
    record.isDirty = record.isDirty || !record.isConnected;  // nobody is left who could ask
  }
  for (const int connection : atWork) {
    const Record& record = state_.records.at(connection);
    if (!record.name && record.watches == 0) {
      state_.records.erase(connection);  // nobody can miss it, so this is no change
      isFromThisMachine_.erase(connection);
    } else {
      beginsToEnd(connection, now);
      losesPorts(connection);
      tellsWatchers(now);
    }
  }
}

// ---- To be read

namespace {

std::string shown(const std::optional<std::string>& text) {
  return text ? "\"" + *text + "\"" : "nil";
}

std::string shown(const std::optional<List>& list) {
  return list ? "[" + joined(*list) + "]" : "nil";
}

}  // namespace

std::string shown(const State& state) {
  std::ostringstream text;
  text.precision(17);
  for (const auto& [connection, record] : state.records) {
    text << "  connection " << connection << (record.isConnected ? "" : ", closed") << ": name "
         << shown(record.name) << " key " << shown(record.key) << " number " << shown(record.number)
         << " host " << shown(record.host) << " address " << shown(record.address) << " type "
         << shown(record.type) << " status " << shown(record.status) << " alert "
         << shown(record.alert) << " of " << record.alertTime
         << (record.isDirty ? " dirty" : " clean") << " watches " << record.watches << "\n";
  }
  text << "  ports:";
  for (const auto& [name, connection] : state.ports) {
    text << " \"" << name << "\" -> " << connection;
  }
  text << "\n  next number " << state.nextNumber << ", last change " << state.lastChange
       << ", refresh number " << state.refreshNumber << "\n  hosts " << shown(state.hosts)
       << ", alternate " << shown(state.alternateHosts) << ", last " << shown(state.lastHost)
       << "\n  cached states " << shown(state.cachedStates) << ", alerts "
       << shown(state.cachedAlerts) << "\n";
  return text.str();
}

std::string shown(const Request& request) {
  std::string text;
  for (const auto& [key, value] : request) {
    text += (text.empty() ? "{" : ", ") + key + ": " + (value ? "\"" + *value + "\"" : "no text");
  }
  return text.empty() ? "{}" : text + "}";
}

std::string shown(const Reply& reply) {
  switch (reply.kind) {
    case Reply::Kind::request:
      return "the request";
    case Reply::Kind::none:
      return "no dictionary";
    case Reply::Kind::raised:
      return "no dictionary (raised)";
    case Reply::Kind::notRecognised:
      return "not recognised";
    case Reply::Kind::endOfProcess:
      return "the end of the process";
    case Reply::Kind::held:
      return reply.texts.empty() ? "nothing yet" : "nothing for " + reply.texts[0].second + " s";
    case Reply::Kind::dictionary:
      break;
  }
  std::string text;
  for (const auto& [key, value] : reply.texts) {
    text += (text.empty() ? "{" : ", ") + key + ": \"" + value + "\"";
  }
  return text.empty() ? "{}" : text + "}";
}

}  // namespace sorvane::model
