#include "model/Trial.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include "model/Difference.h"
#include "model/RealState.h"
#include "registry/Journal.h"
#include "registry/KeptBody.h"

namespace sorvane::model {
namespace {

using test::movedTime;

constexpr int kFirstDescriptor = 3;
constexpr std::size_t kDescriptors = 128;

/// Memory for a journal, or null where there is none.
std::shared_ptr<JournalMemory> madeMemory(const Setting& setting) {
  return setting.journalBytes ? std::make_shared<JournalMemory>(kDescriptors) : nullptr;
}

// The length of the list that these records would give now.
std::uint64_t listBytes(const State& state, bool ofAlerts) {
  std::uint64_t bytes = 0;
  for (const auto& [name, connection] : state.ports) {
    const Record& record = state.records.at(connection);
    const bool isListed = record.name != "sorvexec" && record.name != "VN_nameserver" &&
                          record.name != "VN_infoserver";
    if (isListed && (!ofAlerts || record.alert)) {
      bytes += record.name->size() + 1 +
               (ofAlerts ? *record.alert : record.status.value_or("running")).size() +
               (bytes == 0 ? 0 : 1);
    }
  }
  return bytes;
}

template <typename Value>
void compare(std::ostream& out, const char* what, const Value& expected, const Value& real) {
  if (expected != real) {
    out << what << ": the model has " << expected << ", the registry " << real << "\n";
  }
}

}  // namespace

std::string shown(const Step& step) {
  std::ostringstream text;
  if (step.later > 0.0) {
    text << step.later << " s later: ";
  }
  text << "connection " << step.connection;
  switch (step.kind) {
    case Step::Kind::connects:
      text << " is made" << (step.isFromThisMachine ? "" : " by another machine");
      break;
    case Step::Kind::closes:
      text << " ends";
      break;
    case Step::Kind::follows:
      return "follower " + std::to_string(step.connection) + " asks for " +
             std::to_string(step.limit) + " names";
    case Step::Kind::goesOn:
      return "another server goes on";
    case Step::Kind::dies: {
      std::string ended = "the server dies, and the next one goes on; at work:";
      for (const int connection : step.atWork) {
        ended += " " + std::to_string(connection);
      }
      return ended;
    }
    case Step::Kind::asks:
      text << " asks " << shown(requestOf(step.request));
      break;
  }
  return text.str();
}

class Trial::Connection : public test::InProcessConnection {
 public:
  explicit Connection(bool isFromThisMachine, int descriptor = -1)
      : isFromThisMachine_(isFromThisMachine), descriptor_(descriptor) {}
  [[nodiscard]] bool isFromThisMachine() const override { return isFromThisMachine_; }
  [[nodiscard]] int descriptor() const override { return descriptor_; }

 private:
  const bool isFromThisMachine_;
  const int descriptor_;
};

/// What outlives a registry.
struct WithJournal {
  WithJournal(std::shared_ptr<JournalMemory> ofJournal, std::size_t leastBytes)
      : memory(std::move(ofJournal)) {
    if (memory != nullptr) {
      journal = std::make_unique<Journal>(*memory, Journal::Sizes{.least = leastBytes});
    }
  }

  const std::shared_ptr<JournalMemory> memory;
  std::unique_ptr<Journal> journal;  // null: there is none
};

class Trial::Server : public WithJournal, public test::CommandServer {
 public:
  Server(const RegistryLimits& limits, std::shared_ptr<JournalMemory> ofJournal,
         std::size_t leastBytes)
      : WithJournal(std::move(ofJournal), leastBytes), CommandServer(limits) {}
  void endCommunication(NetConnection& connection) override {
    ends(*connection.context<PortDescriptor>(), connection.descriptor());
  }
  void ends(PortDescriptor& record, int descriptor) {
    const ConnectionEnd end = endConnection(registry, &record, descriptor);
    EXPECT_FALSE(end.removedHost) << "no host is ever listed";
    EXPECT_EQ(end.droppedPorts, 0U) << "nothing here passes a limit";
  }
};

Trial::Trial(const Setting& setting, std::set<std::string> names)
    : setting_(setting),
      names_(std::move(names)),
      forgetsGone_(setting.remembersGone < names_.size()),
      server_(madeServer(madeMemory(setting))) {
  movedTime = 1000.0;
  server_->registry.stampTime();
  Host modelled = setting.host;
  modelled.version = "9.8.7 (build #6) 1.2.2003";
  modelled.system = "test system";
  modelled.aliases = {{"10.9.9.9", "outside"}};
  model_ = std::make_unique<RegistryModel>(modelled, movedTime);
  for (const auto& [number, record] : model_->state().records) {
    auto own = std::make_shared<PortDescriptor>();
    own->setRegistration({.portKey = record.key,
                          .portName = record.name,
                          .portHostAddress = record.address,
                          .portHost = record.host,
                          .portNumber = record.number,
                          .portType = std::nullopt});
    numbers_[own.get()] = number;
    server_->registry.enterPort(*record.name, own);
  }
  EXPECT_EQ(beginsJournal(), "");
}

Trial::~Trial() = default;

std::unique_ptr<Trial::Server> Trial::madeServer(std::shared_ptr<JournalMemory> memory) const {
  auto server =
      std::make_unique<Server>(RegistryLimits{.removed = {.names = setting_.remembersGone}},
                               std::move(memory), setting_.journalBytes.value_or(0));
  const Host& host = setting_.host;
  server->verbose = setting_.isVerbose;
  server->host = {.name = host.name,
                  .address = host.address,
                  .ethernetAddress = host.ethernetAddress,
                  .hasOnlyLoopbackAddress = host.servesItselfAlone,
                  .basePort = host.basePort,
                  .takesRemoteControl = host.takesRemoteControl,
                  .takesRemoteRegistration = host.takesRemoteRegistration,
                  .aliasOf = [](std::string_view asker) {
                    return asker == "10.9.9.9" ? std::optional<std::string>("outside")
                                               : std::nullopt;
                  }};
  return server;
}

std::string Trial::goesOn() {
  std::vector<const PortDescriptor*> records;
  for (const auto& [number, connection] : open_) {
    records.push_back(connection->context<PortDescriptor>());
  }
  const std::string body = test::keptBody(server_->registry, records);
  const std::unique_ptr<Server> before = std::exchange(server_, madeServer(madeMemory(setting_)));
  auto restored = test::restore(server_->registry, body, open_.size());
  const std::map<const PortDescriptor*, int> numbers = std::exchange(numbers_, {});
  records.clear();
  for (auto record = restored.begin(); const auto& [number, connection] : open_) {
    numbers_[record->get()] = number;
    records.push_back(record->get());
    connection->setContextObject(std::move(*record++));
  }
  const std::string fault = recognisesNames(*before, numbers);
  if (!fault.empty()) {
    return fault;
  }
  if (test::keptBody(server_->registry, records) != body) {
    return "something else is kept now\n";
  }
  return beginsJournal();
}

std::string Trial::recognisesNames(const Server& before,
                                   const std::map<const PortDescriptor*, int>& numbers) {
  for (auto& [number, record] : closed_) {
    record.reset();
  }
  for (const std::string& name : names_) {
    const auto former = before.registry.port(name);
    const auto record = server_->registry.port(name);
    if ((former == nullptr) != (record == nullptr)) {
      return (former == nullptr ? "a name is there again: \"" : "a name is lost: \"") + name +
             "\"\n";
    }
    if (record != nullptr) {
      const int number = numbers.at(former.get());
      numbers_[record.get()] = number;
      if (record->holdings().hasLeft != 0) {
        closed_[number] = record;
      }
    }
  }
  return {};
}

std::string Trial::dies(const std::vector<int>& drawnAtWork) {
  if (server_->journal == nullptr) {
    return {};
  }
  ReplayedRecords records;
  std::unique_ptr<Server> next = madeServer(server_->memory);
  next->registry.replay(*next->memory, records);
  std::unique_ptr<Server> before = std::exchange(server_, std::move(next));
  const std::map<const PortDescriptor*, int> numbers = std::exchange(numbers_, {});
  std::set<int> atWork = std::exchange(holding_, {});
  atWork.insert(drawnAtWork.begin(), drawnAtWork.end());
  std::map<int, int> ending;  // the connections by their descriptors
  for (const auto& [number, connection] : open_) {
    if (atWork.contains(number)) {
      ending[connection->descriptor()] = number;
    } else {
      connection->setContextObject(records.take(connection->descriptor()));
      numbers_[connection->context<PortDescriptor>()] = number;
    }
  }
  const auto rest = records.rest();
  for (const auto& [descriptor, record] : rest) {
    if (!ending.contains(descriptor)) {
      return "descriptor " + std::to_string(descriptor) + " has a record and no connection\n";
    }
    numbers_[record.get()] = ending.at(descriptor);
  }
  std::string fault = recognisesNames(*before, numbers);
  if (!fault.empty()) {
    return fault;
  }
  std::vector<int> ended;
  for (const auto& [descriptor, number] : ending) {
    closed_[number].reset();
    open_.erase(number);
    ended.push_back(number);
  }
  for (const auto& [descriptor, record] : rest) {
    server_->ends(*record, descriptor);
    closed_[ending.at(descriptor)] = record;
  }
  before.reset();
  model_->dies(ended, movedTime);
  return beginsJournal();
}

std::string Trial::beginsJournal() {
  if (server_->journal == nullptr) {
    return {};
  }
  for (const auto& [number, connection] : open_) {
    server_->journal->bind(connection->descriptor(), *connection->context<PortDescriptor>());
  }
  return server_->registry.beginJournal(*server_->journal) ? "" : "the journal has ended\n";
}

int Trial::freeDescriptor() const {
  std::set<int> taken;
  for (const auto& [number, connection] : open_) {
    taken.insert(connection->descriptor());
  }
  int descriptor = kFirstDescriptor;
  while (taken.contains(descriptor)) {
    ++descriptor;
  }
  return descriptor;
}

std::string Trial::carriesOut(const Step& step, Compared compared) {
  movedTime += step.later;
  const auto found = open_.find(step.connection);
  std::string difference;
  if (step.kind == Step::Kind::goesOn || step.kind == Step::Kind::dies) {
    try {
      difference = step.kind == Step::Kind::goesOn ? goesOn() : dies(step.atWork);
    } catch (const NSException& fault) {
      difference = std::string("another server cannot go on: ") + fault.what() + "\n";
    }
    if (!difference.empty()) {
      return difference;  // it may know a part of the connections only
    }
    compared = Compared::all;
  } else if (step.kind == Step::Kind::follows) {
    difference = follows(followers_[static_cast<std::size_t>(step.connection)], step.limit);
  } else if (step.kind == Step::Kind::connects) {
    if (found == open_.end() && !closed_.contains(step.connection)) {
      auto made = std::make_unique<Connection>(step.isFromThisMachine, freeDescriptor());
      server_->startCommunication(*made);
      numbers_[made->context<PortDescriptor>()] = step.connection;
      open_[step.connection] = std::move(made);
      model_->connects(step.connection, step.isFromThisMachine);
    }
  } else if (found != open_.end() && step.kind == Step::Kind::closes) {
    holding_.erase(step.connection);
    server_->endCommunication(*found->second);
    closed_[step.connection] = found->second->contextObject<PortDescriptor>();
    open_.erase(found);
    model_->beginsToEnd(step.connection, movedTime);
    model_->losesPorts(step.connection);
    model_->tellsWatchers(movedTime);
  } else if (found != open_.end()) {
    if (holding_.contains(step.connection)) {
      difference = asksHeld(step.connection, true);  // its time is over
    }
    difference += asks(*found->second, step);
  }
  difference += asksAllHeld();
  difference += compared == Compared::all ? differenceOfAll() : differenceOfNumbers();
  return difference;
}

std::string Trial::asks(Connection& sender, const Step& step) {
  const std::string body = bodyOf(step.request);
  Message request;
  if (const char* const fault = request.readBody(body)) {
    return std::string("the request is no dictionary: ") + fault + "\n";
  }
  const Reply expected = model_->asks(step.connection, requestOf(step.request), movedTime);
  if (expected.isChange) {
    model_->tellsWatchers(movedTime);
  }
  Reply real = realReply(sender, request);
  std::ostringstream out;
  if (real.kind == Reply::Kind::raised) {
    // It has changed nothing, so the server may carry it out a second time.
    real = realReply(sender, request);
  }
  if (!fits(expected, real)) {
    out << "the model replies " << shown(expected) << ",\n  the registry " << shown(real) << "\n";
  }
  if (real.kind == Reply::Kind::held) {
    holding_.insert(step.connection);
  }
  const Record& record = model_->state().records.at(step.connection);
  if (const Record now = recordOf(*sender.context<PortDescriptor>()); record != now) {
    State of;
    of.records[step.connection] = now;
    out << "the registry has another record of the sender:\n" << shown(of);
  }
  return out.str();
}

std::string Trial::follows(Follower& follower, std::size_t limit) {
  Connection connection(true);
  ReplyBuffer written;
  connection.setReplyBuffer(&written);
  (void)server_->deliverCommunication(follower.question(std::to_string(limit)), connection);
  std::string body;
  written.forEachPiece([&](std::string_view piece) { body += piece; });
  const std::string fault = follower.takesIn(body, limit, forgetsGone_);
  for (const std::string& name : follower.told()) {
    if (!model_->state().ports.contains(name)) {
      return "a name that is not registered is told: \"" + name + "\"\n" + fault;
    }
    model_->readsAlert(name, movedTime);
  }
  if (!fault.empty() || !follower.knowsAll()) {
    return fault;
  }
  const Picture expected = pictureOf(model_->state(), movedTime);
  const Picture told = follower.picture(movedTime);
  return expected == told
             ? std::string()
             : "the model has\n" + shown(expected) + "the follower was told\n" + shown(told);
}

template <typename Deliver>
Reply Trial::realReplyOf(Connection& sender, Deliver deliver) {
  ReplyBuffer written;
  sender.setReplyBuffer(&written);
  sorvane::Reply reply = sorvane::Reply::none();
  try {
    reply = deliver();
  } catch (const NSException&) {
    return {.kind = Reply::Kind::raised};
  }
  if (reply.isHeld()) {
    return {.kind = Reply::Kind::held, .texts = {{"held", std::to_string(reply.time().count())}}};
  }
  if (reply.kind() == sorvane::Reply::Kind::request) {
    return {.kind = Reply::Kind::request};
  }
  if (reply.kind() == sorvane::Reply::Kind::none) {
    return {.kind = Reply::Kind::none};
  }
  std::string body;
  written.forEachPiece([&](std::string_view piece) { body += piece; });
  return dictionaryOf(body);
}

Reply Trial::realReply(Connection& sender, const Message& request) {
  server_->lastKind = Outcome::Kind::reply;
  const Reply reply =
      realReplyOf(sender, [&] { return server_->deliverCommunication(request, sender); });
  if (server_->lastKind == Outcome::Kind::notRecognised) {
    return {.kind = Reply::Kind::notRecognised};
  }
  if (server_->lastKind == Outcome::Kind::endProcess) {
    return {.kind = Reply::Kind::endOfProcess};
  }
  return reply;
}

Reply Trial::realHeldReply(Connection& sender, bool isLastTime) {
  Reply reply = realReplyOf(sender, [&] { return server_->deliverHeld(sender, isLastTime); });
  if (reply.kind == Reply::Kind::held) {
    reply.texts.clear();  // the time does not begin anew
  }
  return reply;
}

std::string Trial::asksHeld(int connection, bool isLastTime) {
  const Reply expected = model_->answersHeld(connection, isLastTime);
  const Reply real = realHeldReply(*open_.at(connection), isLastTime);
  if (real.kind != Reply::Kind::held) {
    holding_.erase(connection);
  }
  return fits(expected, real)
             ? std::string()
             : "to connection " + std::to_string(connection) + ", which waits, the model replies " +
                   shown(expected) + ",\n  the registry " + shown(real) + "\n";
}

std::string Trial::asksAllHeld() {
  std::string difference;
  for (const int connection : std::set<int>(holding_)) {
    difference += asksHeld(connection, false);
  }
  return difference;
}

std::string Trial::differenceOfNumbers() {
  const State& expected = model_->state();
  std::ostringstream out;
  out.precision(17);
  server_->registry.with([&](const RegistryState& state) {
    compare(out, "names", expected.ports.size(), state.map.size());
    compare(out, "the next number", expected.nextNumber, state.maxport);
    compare(out, "the last change", expected.lastChange, state.timestampFlag);
    compare(out, "the refresh number", expected.refreshNumber, state.forceRefreshNumber);
    compare(out, "a cached list of states", expected.cachedStates.has_value(),
            state.databaseStateString != nullptr);
    compare(out, "a cached list of alerts", expected.cachedAlerts.has_value(),
            state.databaseAlertString != nullptr);
  });
  return out.str();
}

std::string Trial::differenceOfAll() {
  const State& expected = model_->state();
  const State real = realState();
  std::ostringstream out;
  if (expected != real) {
    out << "the model has\n" << shown(expected) << "the registry has\n" << shown(real);
  }
  std::size_t watches = 0;
  bool hasLeftBehind = false;
  for (const auto& [connection, record] : expected.records) {
    watches += record.watches;
    hasLeftBehind = hasLeftBehind || !record.isConnected;
  }
  compare(out, "the length of the watch list", watches,
          server_->registry.watchingPortsList().count());
  server_->registry.with([&](const RegistryState& state) {
    compare(out, "names", expected.ports.size(), state.map.size());
    compare(out, "bytes left behind", hasLeftBehind, state.map.leftBehindBytes() > 0);
    compare(out, "the length of the states", listBytes(expected, false),
            state.map.stateListBytes());
    compare(out, "the length of the alerts", listBytes(expected, true), state.map.alertListBytes());
  });
  for (const auto& [connection, record] : closed_) {
    if (record.expired() == expected.records.contains(connection)) {
      out << "the record of the closed connection " << connection
          << (record.expired() ? " is gone too early\n" : " is still there\n");
    }
  }
  return out.str();
}

State Trial::realState() {
  std::vector<const PortDescriptor*> open;
  for (const auto& [number, connection] : open_) {
    open.push_back(connection->context<PortDescriptor>());
  }
  return stateOf(server_->registry, names_, numbers_, open);
}

}  // namespace sorvane::model
