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

#include "nameserver/sorvkeyController.h"
#include "platform/Console.h"
#include "platform/Settings.h"
#include "platform/TimeSource.h"
#include "registry/Dispatch.h"
#include "support/Recount.h"
#include "support/ReferenceServer.h"
#include "support/RequestLines.h"
#include "support/Require.h"

namespace {

using namespace sorvane;
using namespace sorvane::fuzz;

double now = 0;

/// The controller, with the steps of its start within reach.
class Controller : public sorvkeyController {
 public:
  using sorvkeyController::registerOwnPorts;
  using sorvkeyController::startInfoserver;
};

/// A connection of the controller, and the model of its record. Those with the highest numbers are
/// on another machine.
class Connection : public NetConnection {
 public:
  Connection(unsigned number, Controller& controller) : controller_(controller) {
    modelled->isRemote = number >= kConnections - 2;
    controller_.startCommunication(*this);
  }
  [[nodiscard]] bool isFromThisMachine() const override { return !modelled->isRemote; }
  [[nodiscard]] PortDescriptor& record() const { return *context<PortDescriptor>(); }

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
    return *reply == Reply::request() ? entriesOf(request) : readReferenceBody(body);
  }

  const ReferenceServer::Record modelled = std::make_shared<ReferenceRecord>();

 private:
  Controller& controller_;
};

class Session {
 public:
  Session() {
    controller_.startInfoserver(false);
    controller_.registerOwnPorts();
    for (const char* name : {"VN_infoserver", "VN_nameserver"}) {
      const auto record = controller_.registry().port(name);
      modelled_[record.get()] =
          std::make_shared<ReferenceRecord>(ReferenceRecord{.name = name,
                                                            .number = "5000",
                                                            .host = "testhost",
                                                            .address = "192.0.2.7",
                                                            .type = {},
                                                            .state = {},
                                                            .alert = {}});
      model_.ports[name] = modelled_[record.get()];
      own_.push_back(record);
      names_.insert(name);
    }
    model_.lastChange = now;
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
        model_.end(connection->modelled, now);
        connection.reset();
        break;
      case RequestLine::Kind::request:
        if (connection == nullptr) {
          connection = std::make_unique<Connection>(line.connection, controller_);
          modelled_[&connection->record()] = connection->modelled;
        }
        request(line.entries, *connection);
        break;
    }
    requireState();
  }

 private:
  void request(const Entries& entries, Connection& sender) {
    const std::string body = bodyOf(entries);
    Message request;
    const bool endsProcess = endsServer(commandOf(entries)) && !sender.modelled->isRemote;
    if (request.readBody(body) != nullptr || endsProcess) {
      return;
    }
    for (const char* key : {"portName", "reconnectPort"}) {
      if (const std::string* const name = find(entries, key)) {
        names_.insert(textOf(*name).value_or(""));
      }
    }
    // Requests that come together from one connection share a turn.
    if (!turn_ || std::exchange(lastSender_, &sender) != &sender) {
      turn_.emplace();
    }
    require(sender.ask(request, turn_) == model_.ask(sender.modelled, entries, now),
            "the reply is that of the model");
  }

  std::vector<ReferenceServer::Record> order() {
    return controller_.registry().with([&](const RegistryState& state) {
      std::vector<ReferenceServer::Record> records;
      for (std::size_t slot = 0; slot < state.map.slotCount(); ++slot) {
        if (const PortDescriptor* const record = state.map.inSlot(slot).get()) {
          records.push_back(modelled_.at(record));
        }
      }
      return records;
    });
  }

  void requireState() {
    Registry& registry = controller_.registry();
    require(registry.portCount() == model_.ports.size(), "the ports are those of the model");
    for (const auto& [name, modelled] : model_.ports) {
      const auto record = registry.port(name);
      require(record != nullptr && modelled_.at(record.get()) == modelled,
              "a name belongs to the connection that registered it last");
      requireRecord(*record, *modelled);
    }
    std::vector<const PortDescriptor*> open;
    for (const auto& record : own_) {
      open.push_back(record.get());
    }
    for (const auto& connection : connections_) {
      if (connection != nullptr) {
        requireRecord(connection->record(), *connection->modelled);
        open.push_back(&connection->record());
      }
    }
    require(registry.watchingPortsList().count() == model_.watchers.size(), "the watchers");
    const Registry::ChangeStamp stamp = registry.changeStamp();
    require(stamp.timestampFlag == model_.lastChange, "the time of the last change");
    require(stamp.forceRefreshNumber == model_.refreshNumber, "the refresh number");
    registry.with([&](const RegistryState& state) {
      require(state.maxport == model_.nextNumber, "the next port number");
      require(state.hosts.joined(false).empty() && state.hosts.joined(true).empty(), "the hosts");
    });
    requireSumsFit(registry, {}, names_, open);
  }

  static void requireRecord(const PortDescriptor& record, const ReferenceRecord& modelled) {
    require(record.portName() == modelled.name && record.portNumber() == modelled.number &&
                record.portHost() == modelled.host &&
                record.portHostAddress() == modelled.address && record.portType() == modelled.type,
            "the registration of a record");
    require(record.portStatus() == modelled.state && record.alertAsSet() == modelled.alert,
            "the state and the alert of a record");
    require(record.alertStatusTimestamp() == modelled.alertTime, "the time of an alert");
    require(record.isDirty() == modelled.isDirty, "whether a change was not told yet");
  }

  Controller controller_;
  ReferenceServer model_{{.name = "testhost",
                          .address = "192.0.2.7",
                          .ethernetAddress = "02:00:5e:10:00:07",
                          .productVersion = sorvkeyController::sorvaneVersion(),
                          .systemVersion = sorvkeyController::platformName(),
                          .basePort = 5000},
                         [this] { return order(); }};
  std::map<const PortDescriptor*, ReferenceServer::Record> modelled_;
  std::vector<std::shared_ptr<PortDescriptor>> own_;
  std::set<std::string> names_;
  std::array<std::unique_ptr<Connection>, kConnections> connections_;
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
