// Sessions of several connections against the controller and the info server, as lines that
// support/RequestLines.h describes. After each line, the reply and the whole state must be those of
// a plain model of docs/protocol.md.
#include <array>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "model/Follower.h"
#include "model/RealState.h"
#include "nameserver/sorvkeyController.h"
#include "platform/Console.h"
#include "platform/Settings.h"
#include "platform/TimeSource.h"
#include "registry/Dispatch.h"
#include "support/PreferencesModel.h"
#include "support/Recount.h"
#include "support/RequestLines.h"
#include "support/Require.h"

namespace {

using namespace sorvane;
using namespace sorvane::fuzz;
using model::RegistryModel;

double now = 0;

/// The controller, with the steps of its start within reach.
class Controller : public sorvkeyController {
 public:
  using sorvkeyController::registerOwnPorts;
  using sorvkeyController::startInfoserver;
};

class Connection : public NetConnection {
 public:
  /// No other connection of the session has the number, also after the end of this one.
  Connection(int number, bool isFromThisMachine, Controller& controller)
      : number(number), isFromThisMachine_(isFromThisMachine), controller_(controller) {
    controller_.startCommunication(*this);
  }
  [[nodiscard]] bool isFromThisMachine() const override { return isFromThisMachine_; }
  [[nodiscard]] const PortDescriptor& record() const { return *context<PortDescriptor>(); }

  /// Delivers a request as the server does. Returns the reply, or nothing for "no dictionary".
  std::optional<Entries> ask(const Message& request, std::optional<Turn>& turn) {
    ReplyBuffer written;
    setReplyBuffer(&written);
    auto reply = controller_.deliverWithoutWaiting(request, *this, *turn);
    if (!reply) {
      turn.emplace();
      written.clear();
      Delivery delivery = controller_.deliverWithoutDisk(request, *this);
      reply = delivery.isComplete() ? delivery.reply() : delivery.takeRest()(request);
    }
    std::string body;
    written.forEachPiece([&](std::string_view piece) { body += piece; });
    controller_.cleanupAfterMessage();
    if (*reply == Reply::none()) {
      return std::nullopt;
    }
    if (reply->isHeld()) {
      return Entries{{"held", std::to_string(reply->time().count()) + '\0'}};
    }
    return *reply == Reply::request() ? entriesOf(request) : readReferenceBody(body);
  }

  const int number;

 private:
  const bool isFromThisMachine_;
  Controller& controller_;
};

/// Returns what the client gets, or nothing for "no dictionary".
std::optional<Entries> entriesOf(const model::Reply& reply, const Entries& request) {
  switch (reply.kind) {
    case model::Reply::Kind::request:
      return request;
    case model::Reply::Kind::none:
    case model::Reply::Kind::raised:
      return std::nullopt;
    default:
      break;
  }
  Entries entries;
  for (const auto& [key, text] : reply.texts) {
    entries.push_back({key, text + '\0'});
  }
  return entries;
}

void append(std::string& list, const std::string& name, const std::string& text) {
  list += (list.empty() ? "" : "|") + name + ":" + text;
}

class Session {
 public:
  Session() {
    controller_.startInfoserver(false);
    controller_.registerOwnPorts();
    for (const auto& [number, record] : model_.state().records) {
      own_.push_back(controller_.registry().port(*record.name));
      numbers_[own_.back().get()] = number;
      names_.insert(*record.name);
    }
  }

  void take(const RequestLine& line) {
    std::unique_ptr<Connection>& connection = connections_[line.connection];
    switch (line.kind) {
      case RequestLine::Kind::nothing:
        return;
      case RequestLine::Kind::clock:
        now += line.seconds;
        return;
      case RequestLine::Kind::close:
        if (connection == nullptr) {
          return;
        }
        controller_.endCommunication(*connection);
        model_.beginsToEnd(connection->number, now);
        model_.losesPorts(connection->number);
        model_.tellsWatchers(now);
        connection.reset();
        break;
      case RequestLine::Kind::request:
        if (connection == nullptr) {
          // Those with the highest numbers are on another machine.
          const bool isFromThisMachine = line.connection < kConnections - 2;
          connection = std::make_unique<Connection>(made_++, isFromThisMachine, controller_);
          model_.connects(connection->number, isFromThisMachine);
          numbers_[&connection->record()] = connection->number;
        }
        request(line.entries, *connection);
        break;
    }
    requireState();
  }

 private:
  void request(const Entries& entries, Connection& sender) {
    const std::string body = bodyOf(entries);
    const model::Request asked = requestOf(entries);
    Message request;
    const bool endsProcess =
        model::endsProcess(model::commandOf(asked)) && sender.isFromThisMachine();
    if (request.readBody(body) != nullptr || endsProcess) {
      return;
    }
    for (const char* key : {"portName", "reconnectPort"}) {
      if (const auto name = asked.find(key); name != asked.end()) {
        names_.insert(name->second.value_or(""));
      }
    }
    // Requests that come together from one connection share a turn.
    if (!turn_ || std::exchange(lastSender_, &sender) != &sender) {
      turn_.emplace();
    }
    const std::optional<Entries> real = sender.ask(request, turn_);
    if (model::commandOf(asked) == "portChanges") {
      require(real.has_value(), "whoever asks what has changed is told");
      isTold(*real);
      follow(sender);
      return;
    }
    if (model::commandOf(asked) == "continuity") {
      require(real.has_value() && find(*real, "upgrades") != nullptr, "everybody may ask for it");
      return;
    }
    require(real == entriesOf(modelled(asked, sender), entries), "the reply is that of the model");
  }

  /// Takes note of a reply that tells what has changed: alerts that have lapsed are dropped.
  void isTold(const Entries& reply) {
    for (std::size_t entry = 4; entry < reply.size(); ++entry) {
      const std::optional<Entries> row = readReferenceBody(reply[entry].value);
      require(row && !row->empty() && row->front().key == "name", "each entry tells a name");
      if (find(*row, "gone") == nullptr) {
        const std::string name = textOf(row->front().value).value_or("");
        require(model_.state().ports.contains(name), "it is registered");
        model_.readsAlert(name, now);
      }
    }
  }

  /// The follower asks until there is no more. Then it knows what the model knows.
  void follow(Connection& sender) {
    constexpr std::size_t kLimit = 2;
    do {
      const auto reply = sender.ask(follower_.question(std::to_string(kLimit)), turn_);
      require(reply.has_value(), "the follower is told");
      isTold(*reply);
      const std::string fault = follower_.takesIn(bodyOf(*reply), kLimit, false);
      require(fault.empty(), fault.c_str());
    } while (!follower_.knowsAll());
    require(follower_.picture(now) == model::pictureOf(model_.state(), now),
            "the follower knows what is registered");
  }

  model::Reply modelled(const model::Request& request, const Connection& sender) {
    const model::State& state = model_.state();
    const bool areKept = state.cachedStates && state.cachedAlerts;
    model::Reply reply = model_.asks(sender.number, request, now);
    if (reply.kind == model::Reply::Kind::notRecognised) {
      return preferences_.ask(request, sender.isFromThisMachine());
    }
    if (reply.isChange) {
      model_.tellsWatchers(now);
    }
    if (reply.hasLists) {
      if (!areKept) {
        makeLists();
      }
      reply.texts = lists_;
    }
    return reply;
  }

  /// Puts the model's lists into the order of the map, which the model cannot know.
  void makeLists() {
    std::string states;
    std::string alerts;
    controller_.registry().with([&](const RegistryState& state) {
      for (std::size_t slot = 0; slot < state.map.slotCount(); ++slot) {
        const PortDescriptor* const found = state.map.inSlot(slot).get();
        if (found == nullptr || numbers_.at(found) < 0) {
          continue;
        }
        const model::Record& record = model_.state().records.at(numbers_.at(found));
        if (record.name != "sorvexec" && record.name != "VN_nameserver" &&
            record.name != "VN_infoserver") {
          append(states, *record.name, record.status.value_or("running"));
          if (record.alert) {
            append(alerts, *record.name, *record.alert);
          }
        }
      }
    });
    lists_ = {{"result", states}, {"alerts", alerts}};
  }

  void requireState() {
    Registry& registry = controller_.registry();
    std::vector<const PortDescriptor*> open;
    for (const auto& connection : connections_) {
      if (connection != nullptr) {
        open.push_back(&connection->record());
      }
    }
    model::State expected = model_.state();
    for (auto* const list : {&expected.cachedStates, &expected.cachedAlerts}) {
      if (*list) {
        *list = model::sortedList(model::joined(**list));
      }
    }
    const model::State real = model::stateOf(registry, names_, numbers_, open);
    if (real != expected) {
      std::fputs(
          ("the model has\n" + model::shown(expected) + "the registry has\n" + model::shown(real))
              .c_str(),
          stderr);
    }
    require(real == expected, "the state is that of the model");
    require(registry.portCount() == expected.ports.size(), "there are no other names");
    for (const auto& record : own_) {
      open.push_back(record.get());
    }
    requireSumsFit(registry, {}, names_, open);
  }

  Controller controller_;
  RegistryModel model_{{.name = "testhost",
                        .address = "192.0.2.7",
                        .ethernetAddress = "02:00:5e:10:00:07",
                        .version = sorvkeyController::sorvaneVersion(),
                        .system = sorvkeyController::platformName(),
                        .takesRemoteControl = false,
                        .takesRemoteRegistration = false,
                        .basePort = 5000},
                       now};
  PreferencesModel preferences_;
  model::Follower follower_;
  model::Texts lists_;  // of states and alerts, as they were made last
  std::vector<std::shared_ptr<PortDescriptor>> own_;
  std::map<const PortDescriptor*, int> numbers_;  // of the connections, by their records
  std::set<std::string> names_;
  std::array<std::unique_ptr<Connection>, kConnections> connections_;
  int made_ = 0;  // connections
  const Connection* lastSender_ = nullptr;
  std::optional<Turn> turn_;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*words*/) {
  Settings settings;
  settings.basePort = 5000;
  settings.hostName = "testhost";
  settings.address = "192.0.2.7";
  settings.ethernetAddress = "02:00:5e:10:00:07";
  settings.dynamicAddress = false;
  settings.remoteControl = false;
  settings.remoteRegistration = false;
  // There is no such folder: neither the log nor the preferences cost a disk.
  settings.installationDirectory = "/dev/null/sorvane";
  settings.userPreferenceFile = "/dev/null/sorvane/SorvPreferences";
  Settings::replaceForTest(settings);
  setConsoleSink([](std::string_view) {});
  setTimeSource([] { return now; });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  now = 1000;
  Session session;
  std::string_view text(reinterpret_cast<const char*>(data), size);
  while (!text.empty()) {
    session.take(takeLine(text));
  }
  return 0;
}
