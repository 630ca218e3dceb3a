#include "platform/server/ServedDelegate.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <stdexcept>
#include <thread>

#include "platform/KeptForm.h"
#include "platform/NSException.h"
#include "platform/VNHost.h"
#include "platform/server/WaitingThreads.h"

namespace sorvane::test {
namespace {

/// What a connection is doing: one operation at a time, in the order start, deliveries, end.
struct Tracker {
  std::atomic<int> inside{0};
  bool ended = false;
  std::uint64_t seenChanges = 0;
};

}  // namespace

void ScriptedDelegate::startCommunication(NetConnection& connection) {
  if (connection.context<Tracker>() != nullptr) {
    ++overlaps;
  }
  connection.setContextObject(std::make_shared<Tracker>());
  ++started;
}

std::optional<Reply> ScriptedDelegate::deliverWithoutWaiting(const Message& request,
                                                             NetConnection& sender,
                                                             Turn& /*turn*/) {
  if (request.contains("wait") || request.contains("raise") || request.contains("log") ||
      request.contains("preferences")) {
    return std::nullopt;
  }
  if (request.contains("stop")) {
    waitAtGate();
  }
  ++deliveredWithoutWaiting;
  if (whenDelivered) {
    whenDelivered();
  }
  return answer(request, sender);
}

Delivery ScriptedDelegate::deliverWithoutDisk(const Message& request, NetConnection& sender) {
  if (!request.contains("log") && !request.contains("preferences")) {
    return deliverCommunication(request, sender);
  }
  const Disk disk = request.contains("log") ? Disk::log : Disk::preferences;
  changesMade += request.contains("change") ? 1 : 0;
  return {disk, [this, &sender](const Message& sameRequest) {
            waitAtGate();
            std::this_thread::sleep_for(std::chrono::milliseconds(diskTime));
            return answer(sameRequest, sender);
          }};
}

Reply ScriptedDelegate::deliverCommunication(const Message& request, NetConnection& sender) {
  const Reply reply = answer(request, sender);
  if (request.contains("wait")) {
    waitAtGate();
  }
  return reply;
}

Reply ScriptedDelegate::deliverHeld(NetConnection& sender, bool isLastTime) {
  ++askedHeld;
  return answerHeld(sender, isLastTime);
}

Reply ScriptedDelegate::answerHeld(NetConnection& sender, bool isLastTime) const {
  Tracker& tracker = *sender.context<Tracker>();
  const std::uint64_t now = changesMade;
  const bool hasChanged = std::exchange(tracker.seenChanges, now) != now;
  if (!hasChanged && !isLastTime) {
    return Reply::held(Reply::kLongestHold);
  }
  sender.replyWriter().text("result", hasChanged ? "changed" : "over");
  return Reply::written();
}

Reply ScriptedDelegate::answer(const Message& request, NetConnection& sender) {
  auto* const tracker = sender.context<Tracker>();
  if (tracker == nullptr || tracker->ended || tracker->inside.exchange(1) != 0) {
    ++overlaps;
    return Reply::none();
  }
  const int deliveredBefore = delivered++;
  tracker->inside = 0;
  if (request.contains("raise")) {
    (void)sender.replyWriter().text("half", "written");
    throw NSException("raised");
  }
  if (request.contains("raiseOther")) {
    throw std::runtime_error("what no command may raise");
  }
  if (request.contains("nil")) {
    sender.replyWriter().text("half", "written");
    return Reply::none();
  }
  if (const auto seconds = request.text("hold")) {
    const Reply reply = answerHeld(sender, false);
    return reply.isHeld() ? Reply::held(std::chrono::seconds(std::stoi(std::string(*seconds))))
                          : reply;
  }
  if (request.contains("change") && !request.contains("log")) {
    ++changesMade;
  }
  if (request.contains("echo") || request.contains("wait") || request.contains("log") ||
      request.contains("preferences")) {
    return Reply::request();
  }
  if (request.contains("count")) {
    sender.replyWriter().text("result", std::to_string(deliveredBefore));
  }
  if (const auto bytes = request.text("big")) {
    sender.replyWriter().data("data", std::string(std::stoul(std::string(*bytes)), 'x'));
  }
  if (request.contains("shared")) {
    sender.replyWriter().sharedText("text", sharedText);
  }
  return Reply::written();
}

void ScriptedDelegate::waitAtGate() {
  std::unique_lock<std::mutex> hold(mutex_);
  ++atGate_;
  changed_.notify_all();
  changed_.wait(hold, [this] { return gateIsOpen_; });
}

void ScriptedDelegate::keepConnection(NetConnection& connection, KeptWriter& writer) {
  const auto* const tracker = connection.context<Tracker>();
  if (tracker == nullptr || tracker->inside != 0 || tracker->ended) {
    ++overlaps;
    return;
  }
  writer.number(tracker->seenChanges);
}

void ScriptedDelegate::restoreConnection(NetConnection& connection, KeptReader& reader) {
  if (connection.context<Tracker>() != nullptr) {
    ++overlaps;
  }
  auto tracker = std::make_shared<Tracker>();
  tracker->seenChanges = reader.number();
  connection.setContextObject(std::move(tracker));
  ++restored;
}

void ScriptedDelegate::endCommunication(NetConnection& connection) {
  auto* const tracker = connection.context<Tracker>();
  if (tracker == nullptr || tracker->inside != 0 || std::exchange(tracker->ended, true)) {
    ++overlaps;
  }
  const std::lock_guard<std::mutex> hold(mutex_);
  ++ended;
  changed_.notify_all();
}

void ScriptedDelegate::openGate() {
  const std::lock_guard<std::mutex> hold(mutex_);
  gateIsOpen_ = true;
  changed_.notify_all();
}

bool ScriptedDelegate::arriveAtGate(int requests) {
  std::unique_lock<std::mutex> hold(mutex_);
  return changed_.wait_for(hold, kPatience, [&] { return atGate_ >= requests; });
}

bool ScriptedDelegate::seeEndsOf(int connections) {
  std::unique_lock<std::mutex> hold(mutex_);
  return changed_.wait_for(hold, kPatience, [&] { return ended >= connections; });
}

ServedDelegate::ServedDelegate(Settings settings) : delegate_(new ScriptedDelegate) {
  settings.localAccessOnly = true;
  Settings::replaceForTest(settings);
  VNHost::resetForTest();
  int socket = -1;
  for (port_ = 20000 + getpid() % 20000; socket < 0; ++port_) {
    socket = NetConnection::createServerSocketForPort(port_);
  }
  --port_;
  std::thread([socket, delegate = delegate_] {
    NetConnection::runServerForSocket(socket, *delegate);
  }).detach();
}

ServedDelegate::ServedDelegate(const ServedDelegate& before, Settings settings)
    : delegate_(new ScriptedDelegate), port_(before.port_) {
  KeptWriter writer;
  if (!before.running().pause(std::chrono::steady_clock::now() + kPatience)) {
    throw std::runtime_error("the server does not pause");
  }
  before.running().keep(writer);
  for (const Disk disk : {Disk::log, Disk::preferences}) {
    threadOf(disk).goOn();  // the process has no others for the next server
  }
  settings.localAccessOnly = true;
  Settings::replaceForTest(settings);
  std::thread([delegate = delegate_, description = writer.header() + std::string(writer.body())] {
    KeptReader reader(description);
    NetConnection::continueServer(reader, *delegate);
  }).detach();
}

}  // namespace sorvane::test
