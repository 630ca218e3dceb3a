// What a registry hands on to the program that goes on with it. The input is the body of the
// description without its first two values, the key of the hashes, which is fixed; behind the
// registry come the number of connections, up to 8, and their records. Either that raises, and the
// registry is as it was, or the registry has the sums of a count, takes commands, and is written
// again to what reads back equal.
#include <limits>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/TimeSource.h"
#include "registry/ConnectionEnd.h"
#include "registry/Dispatch.h"
#include "registry/KeptBody.h"
#include "support/Recount.h"
#include "support/Require.h"

namespace {

using namespace sorvane;
using namespace sorvane::fuzz;
using Records = std::vector<std::shared_ptr<PortDescriptor>>;

constexpr SipKey kKey = {.low = 1, .high = 2};
constexpr std::uint64_t kMostConnections = 8;
constexpr int kMostPages = 50;

class Connection : public NetConnection {
 public:
  explicit Connection(std::shared_ptr<PortDescriptor> record) {
    setContextObject(std::move(record));
  }
  using NetConnection::setReplyBuffer;
};

const std::string& version() {
  static const auto* const text = new std::string("1.0");
  return *text;
}

std::string keptBody(const Registry& registry, const Records& records) {
  KeptWriter writer;
  KeptRecords kept;
  registry.keep(writer, kept);
  writer.number(records.size());
  for (const auto& record : records) {
    kept.keepRecord(writer, *record);
  }
  return std::string(writer.body());
}

/// A registry and the records of its connections.
class Restored {
 public:
  /// Raises NSException when there is no such registry.
  explicit Restored(const std::string& body) {
    const std::string description = test::described(body);
    KeptReader reader(description);
    const std::string before = test::keptBody(registry_);
    RestoredRecords restored;
    try {
      registry_.restore(reader, restored);
    } catch (const NSException&) {
      require(test::keptBody(registry_) == before, "what is refused changes nothing");
      throw;
    }
    for (std::uint64_t left = reader.number(kMostConnections); left > 0; --left) {
      records_.push_back(restored.restoreRecord(reader));
    }
    reader.end();
    own_ = restored.unclaimed();
    requireCounts();
  }

  [[nodiscard]] std::string body() const { return keptBody(registry_, records_); }

  /// Asks for everything, changes everything, and ends all connections.
  void isUsed() {
    auto record = std::make_shared<PortDescriptor>();
    records_.push_back(record);
    Connection connection(std::move(record));
    asksForChanges(connection);
    for (const std::string& name : names()) {
      asks(connection, {{"findPort", name}, {"portHost", "h"}});
      asks(connection, {{"action", "setAlertState"}, {"databaseName", name}, {"state", "full"}});
      asks(connection, {{"action", "setDatabaseState"}, {"databaseName", name}, {"state", "up"}});
      asks(connection, {{"reconnectPort", name + "2"},
                        {"portNumber", "1"},
                        {"portHost", "h"},
                        {"portType", "t"}});
      asks(connection, {{"action", "forgetPort"}, {"name", name}});
    }
    for (const char* action : {"databaseStates", "changeTimestamp", "hostList", "needsRefresh"}) {
      asks(connection, {{"action", action}, {"force", "yes"}});
    }
    asks(connection, {{"newPort", ""}, {"portHost", "h"}, {"portName", "n"}, {"portType", "t"}});
    while (!records_.empty()) {
      (void)endConnection(registry_, records_.back().get());
      records_.pop_back();
      requireCounts();
    }
    const bool hasRoom = registry_.with(
        [](const RegistryState& state) { return !state.map.hasTooMuchLeftBehind(); });
    require(hasRoom, "what is left behind is within its bound");
  }

 private:
  std::string asks(Connection& connection, const Message& request) {
    const HostFacts host = {
        .name = "testhost",
        .address = "192.0.2.7",
        .ethernetAddress = "02:00:5e:10:00:07",
        .basePort = 5000,
        .aliasOf = [](std::string_view) { return std::optional<std::string>(); }};
    ReplyBuffer written;
    connection.setReplyBuffer(&written);
    Notes notes;
    const ServerServices services{version, version};
    CommandContext context{registry_, continuity_, request, connection, connection.replyWriter(),
                           host,      services,    false,   notes};
    const DispatchRule& rule = ruleFor(request);
    try {
      (void)rule.mayWait(context);
      if (prepare(rule, context)) {
        (void)rule.command(context);
      }
    } catch (const NSException&) {
      written.clear();
    }
    releaseRetiredTexts();
    requireCounts();
    std::string body;
    written.forEachPiece([&](std::string_view piece) { body += piece; });
    return body;
  }
  /// Those in the slots. Whether each can be found, a count tells.
  std::set<std::string> names() {
    return registry_.with([](const RegistryState& state) {
      std::set<std::string> names;
      for (std::size_t slot = 0; slot < state.map.slotCount(); ++slot) {
        if (state.map.inSlot(slot) != nullptr) {
          names.emplace(state.map.table().nameIn(slot));
        }
      }
      return names;
    });
  }
  void asksForChanges(Connection& connection) {
    std::string since = "0";
    for (int page = 0; page < kMostPages; ++page) {
      const std::string body = asks(connection, {{"action", "portChanges"},
                                                 {"instance", registry_.instance()},
                                                 {"since", since},
                                                 {"limit", "1"}});
      Message reply;
      if (reply.readBody(body) != nullptr || reply.text("more") != "YES") {
        return;
      }
      since = *reply.text("sequence");
    }
  }
  void requireCounts() {
    constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
    std::vector<const PortDescriptor*> open;
    for (const Records* const records : {&records_, &own_}) {
      for (const auto& record : *records) {
        open.push_back(record.get());
      }
    }
    requireSumsFit(registry_, {.connection = kMost, .leftBehind = kMost, .all = kMost}, names(),
                   open);
    std::size_t watchers = 0;
    for (const PortDescriptor* const record : open) {
      watchers += record->timesOnWatchList();
    }
    require(registry_.watchingPortsList().count() == watchers, "the number of watchers");
  }

  Registry registry_{{.leftBehind = 2000}};
  const Continuity continuity_;
  Records records_, own_;
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*words*/) {
  require(SipKey::setOfThisProcess(kKey), "the key is not in use yet");
  setTimeSource([] { return 1000.0; });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  KeptWriter key;
  key.number(kKey.low);
  key.number(kKey.high);
  std::string body(key.body());
  body.append(reinterpret_cast<const char*>(data), size);
  try {
    Restored first(body);
    const std::string written = first.body();
    Restored second(written);
    require(second.body() == written, "what was written is read back equal");
    second.isUsed();
  } catch (const NSException&) {
    return 0;
  }
  return 0;
}
