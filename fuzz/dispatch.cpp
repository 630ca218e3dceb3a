// Requests against the table of commands and a registry with low bounds, as lines that
// support/RequestLines.h describes. The command must be the one that docs/protocol.md names, a
// command that raises must have changed nothing, and the sums of the registry must be those of a
// count. The first byte chooses what the settings and the host are.
#include "registry/Dispatch.h"

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "model/RegistryModel.h"
#include "platform/TimeSource.h"
#include "registry/ConnectionEnd.h"
#include "registry/StateSnapshot.h"
#include "support/Recount.h"
#include "support/RequestLines.h"
#include "support/Require.h"

namespace {

using namespace sorvane;
using namespace sorvane::fuzz;

constexpr RegistryLimits kLimits{.connection = 2000, .leftBehind = 3000, .all = 8000};
double now = 0;

/// One of those whose number is odd is on another machine.
class Connection : public NetConnection {
 public:
  explicit Connection(unsigned number) : isRemote_(number % 2 == 1) {
    setContextObject(std::make_shared<PortDescriptor>());
  }
  using NetConnection::setReplyBuffer;
  [[nodiscard]] bool isFromThisMachine() const override { return !isRemote_; }
  [[nodiscard]] PortDescriptor& record() const { return *context<PortDescriptor>(); }

 private:
  const bool isRemote_;
};

const std::string& version() {
  static const auto* const text = new std::string("1.0");
  return *text;
}

std::string nameOf(const DispatchRule& rule) {
  return std::string(rule.keys[0].empty() ? rule.action : rule.keys[0]);
}

class Commands {
 public:
  explicit Commands(std::uint8_t choice)
      : host_{.name = "testhost",
              .address = "192.0.2.7",
              .ethernetAddress = "02:00:5e:10:00:07",
              .hasOnlyLoopbackAddress = (choice & 1) != 0,
              .basePort = 5000,
              .takesRemoteControl = (choice & 2) == 0,
              .takesRemoteRegistration = (choice & 4) == 0,
              .aliasOf = [](std::string_view) { return std::optional<std::string>(); }},
        verbose_((choice & 8) != 0) {}

  void take(const RequestLine& line) {
    std::unique_ptr<Connection>& connection = connections_[line.connection];
    if (line.kind == RequestLine::Kind::clock) {
      now += line.seconds;
    } else if (line.kind == RequestLine::Kind::request) {
      if (connection == nullptr) {
        connection = std::make_unique<Connection>(line.connection);
      }
      request(line.entries, *connection);
    } else if (line.kind == RequestLine::Kind::close && connection != nullptr) {
      (void)endConnection(registry_, &connection->record());
      connection.reset();
    }
    requireSumsFit(registry_, kLimits, names_, records());
  }

 private:
  void request(const Entries& entries, Connection& sender) {
    const std::string body = bodyOf(entries);
    Message request;
    if (request.readBody(body) != nullptr) {
      return;
    }
    for (const char* key : {"portName", "reconnectPort"}) {
      if (const std::string* const value = find(entries, key)) {
        names_.insert(textOf(*value).value_or(""));
      }
    }
    const DispatchRule& rule = ruleFor(request);
    const std::string name = nameOf(rule);
    const std::string expected = model::commandOf(requestOf(entries));
    require(expected == name || expected == "ping", "the first row that matches applies");

    ReplyBuffer written;
    sender.setReplyBuffer(&written);
    Notes notes;
    const ServerServices services{version, version};
    CommandContext context{registry_, continuity_, request,  sender, sender.replyWriter(),
                           host_,     services,    verbose_, notes};
    const std::string before = snapshot();
    const bool mayWait = rule.mayWait(context);
    try {
      const Outcome outcome = prepare(rule, context) ? rule.command(context) : Reply::none();
      const bool isReserved = !sender.isFromThisMachine() &&
                              ((model::endsProcess(name) && !host_.takesRemoteControl) ||
                               (model::changesRegistry(name) && !host_.takesRemoteRegistration));
      if (isReserved) {
        require(outcome.reply() == Reply::none() && snapshot() == before,
                "what is reserved for this machine does nothing for another");
      }
      const bool endsProcess = outcome.kind() == Outcome::Kind::endProcess;
      require(endsProcess == (model::endsProcess(name) && !isReserved),
              "two commands end the process");
      requireReply(outcome, written);
    } catch (const NSException&) {
      require(snapshot() == before, "a command that raises has changed nothing");
    }
    require(mayWait || !notes.any(), "a command that leaves notes may wait");
    if (notes.logLine != nullptr) {
      (void)notes.logLine(request, host_);
    }
    releaseRetiredTexts();
  }

  static void requireReply(const Outcome& outcome, const ReplyBuffer& written) {
    std::string body;
    written.forEachPiece([&](std::string_view piece) { body += piece; });
    require(readReferenceBody(body).has_value(), "a reply is a dictionary");
    require(body.empty() || outcome.reply() == Reply::written(), "what is written is the reply");
  }

  std::vector<const PortDescriptor*> records() const {
    std::vector<const PortDescriptor*> records;
    for (const auto& connection : connections_) {
      if (connection != nullptr) {
        records.push_back(&connection->record());
      }
    }
    return records;
  }
  std::string snapshot() {
    return test::snapshot(registry_, {names_.begin(), names_.end()}, records());
  }

  Registry registry_{kLimits};
  const Continuity continuity_;
  const HostFacts host_;
  const bool verbose_;
  std::set<std::string> names_;
  std::unique_ptr<Connection> connections_[kConnections];
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  setTimeSource([] { return now; });
  now = 1000;
  if (size > 0) {
    Commands commands(data[0]);
    std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    while (!text.empty()) {
      commands.take(takeLine(text));
    }
  }
  return 0;
}
