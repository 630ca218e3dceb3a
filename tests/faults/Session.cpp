#include "faults/Session.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <filesystem>

namespace sorvane::test {
namespace {

// Longer than what a reply copies into its own bytes, so that it is sent from several places.
constexpr std::size_t kLongState = 20000;
// Several of them in one turn are more than the serving loop sends at once.
constexpr std::size_t kLongType = 60000;
constexpr int kLateReplies = 10;
// Longer than the input buffer of the serving loop.
constexpr std::size_t kLongName = 150000;

const Message kPing({{"ping", ""}});

Message findPort(std::string_view name) { return {{"findPort", name}, {"portHost", "localhost"}}; }

Message raising(const std::string& name) { return {{"findPort", name}}; }

int socketWithSmallBuffers(int port) {
  const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int bytes = 4096;
  const int segment = 1000;  // the peer's buffer grows with the segments that it sends
  setsockopt(made, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
  setsockopt(made, IPPROTO_TCP, TCP_MAXSEG, &segment, sizeof segment);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  // A name server that has ended refuses it: whoever uses the socket sees that.
  static_cast<void>(connect(made, reinterpret_cast<const sockaddr*>(&address), sizeof address));
  return made;
}

}  // namespace

// ---- Guest

Guest::Guest(const Daemon& server) : connection_(server.rawConnection()) {
  if (!connection_->isConnected()) {
    connection_.reset();
  }
}

Guest Guest::withSmallBuffers(const Daemon& server) {
  return Guest(socketWithSmallBuffers(server.basePort()));
}

void Guest::sends(const std::string& bytes) {
  if (connection_ && !connection_->send(bytes)) {
    connection_.reset();
  }
}

std::optional<RawFrame> Guest::takes() {
  std::optional<RawFrame> reply;
  if (connection_) {
    reply = connection_->receiveFrame();
    if (!reply) {
      connection_.reset();
    }
  }
  return reply;
}

std::optional<RawFrame> Guest::asks(const Message& request) {
  sends(frame(request));
  return takes();
}

void Guest::gets(const Message& request, const std::optional<Texts>& reply) {
  if (const auto came = asks(request)) {
    EXPECT_EQ(came->kind == 0 ? std::nullopt : textsOf(came->message()), reply);
  }
}

void Guest::getsText(const Message& request, std::string_view key, const std::string& text) {
  if (const auto came = asks(request)) {
    ASSERT_EQ(came->kind, 1);
    EXPECT_EQ(came->message().text(key), text);
  }
}

void Guest::isClosed() {
  if (connection_) {
    EXPECT_TRUE(connection_->isClosedByPeer());
    connection_.reset();
  }
}

// ---- Session

Session::Session(const Daemon& server, int number)
    : server_(server),
      number_(number),
      name_("db" + std::to_string(number)),
      preference_(std::to_string(number) + std::string(kLongState, 'p')) {}

void Session::play() {
  registersAndReports();
  watchesAndLooksUp();
  sendsInPieces();
  usesOtherThreads();
  isRude();
  readsLate();
  comesAndGoes();
}

int Session::connections() const {
  return static_cast<int>(std::count_if(guests_.begin(), guests_.end(),
                                        [](const Guest& each) { return !each.isLost(); }));
}

void Session::registersAndReports() {
  database_ = &comes();
  const auto number = database_->asks({{"newPort", ""},
                                       {"portName", name_},
                                       {"portHost", "dbhost"},
                                       {"portType", std::string(kLongType, 't')}});
  EXPECT_TRUE(!number || number->message().contains("portNumber"));
  database_->gets({{"acceptPort", ""}}, Texts{{"acceptPort", ""}});
  for (const char* const action : {"setDatabaseState", "setAlertState"}) {
    database_->gets(
        request(action, {{"databaseName", name_}, {"state", std::string(kLongState, 's')}}),
        Texts{{"result", "success"}});
  }
}

void Session::watchesAndLooksUp() {
  watcher_ = &comes();
  watcher_->gets(request("watchPortChanges", {}), kSucceed);
  Guest& seeker = comes();
  seeker.gets(request("needsRefresh", {}), Texts{{"result", "success"}});
  watcher_->gets(request("didPortsChange", {}), Texts{{"result", "YES"}});
  watcher_->sends(frame(request("awaitPortChanges", {{"timeout", "1"}})));
  seeker.gets(request("needsRefresh", {}), Texts{{"result", "success"}});
  if (const auto told = watcher_->takes(); told && !seeker.isLost()) {
    EXPECT_EQ(told->message().text("result"), "YES");
  }
  seeker.sends(frame(kPing) + frame(findPort("nobody")) + frame(findPort(name_)));
  for (const bool isKnown : {false, false, !database_->isLost()}) {
    const auto reply = seeker.takes();
    EXPECT_TRUE(!reply || !isKnown || reply->message().contains("portNumber"));
  }
  expectStates(seeker.asks(request("databaseStates", {})));
}

void Session::sendsInPieces() {
  Guest& slow = comes();
  const std::string asking = frame(request("changeTimestamp", {}));
  slow.sends(frame(kPing) + asking.substr(0, asking.size() / 2));
  static_cast<void>(slow.takes());
  slow.sends(asking.substr(asking.size() / 2));
  const auto stamp = slow.takes();
  EXPECT_TRUE(!stamp || stamp->message().contains("result"));
  slow.gets(findPort(std::string(kLongName, 'n')), Texts{{"notFound", "notFound"}});
}

void Session::usesOtherThreads() {
  Guest& launcher = comes();
  launcher.gets(request("sorvexecConnectHost", {{"hostName", "h"},
                                                {"portHostAddress", "a"},
                                                {"ethernetAddress", "02:00:00:00:00:01"}}),
                Texts{{"result", "connected"}});
  Guest& user = comes();
  user.gets(request("set_userpreferences", {{"key", kUser}, {"databases", preference_}}), kSucceed);
  isToldOfStoring_ = !user.isLost();
  user.gets(request("get_userpreferences", {{"key", kUser}}), Texts{{"databases", preference_}});
  // The log is opened anew for the entry.
  std::filesystem::remove(server_.tree() / "Logs/infoserver_log");
  Guest& mistaken = comes();
  mistaken.gets(raising("raised " + std::to_string(number_)), kNil);
}

void Session::isRude() {
  Guest& rude = comes();
  rude.sends(frame(kPing) + "no frame at all");
  if (rude.takes()) {
    rude.isClosed();
  } else {
    ++lostBefore_;
  }
  guests_.pop_back();
}

void Session::readsLate() {
  guests_.push_back(Guest::withSmallBuffers(server_));
  Guest& late = guests_.back();
  std::string all;
  for (int i = 0; i < kLateReplies; ++i) {
    all += frame(findPort(name_));
  }
  // The lists are sent from places of their own, together with the replies that follow.
  late.sends(frame(request("databaseStates", {})) + all);
  expectStates(late.takes());
  for (int i = 0; i < kLateReplies; ++i) {
    const auto reply = late.takes();
    if (reply && !database_->isLost()) {
      ASSERT_EQ(reply->message().text("portType"), std::string(kLongType, 't'));
    }
  }
}

void Session::comesAndGoes() {
  Guest& leaver = comes();
  if (!leaver.asks({{"reconnectPort", "leaver"},
                    {"portNumber", "7"},
                    {"portHost", "h"},
                    {"portType", "t"}})) {
    ++lostBefore_;
  }
  guests_.pop_back();
}

void Session::expectStates(const std::optional<RawFrame>& reply) const {
  if (reply && !database_->isLost()) {
    EXPECT_NE(reply->message().text("result")->find(name_ + ":sss"), std::string::npos);
  }
}

int Session::countLost() {
  int lost = lostBefore_;
  for (Guest& each : guests_) {
    each.gets(kPing, kEmptyDictionary);
    lost += each.isLost() ? 1 : 0;
  }
  EXPECT_TRUE(waitUntil([&] { return !server_.finds("leaver"); })) << "who is gone stays";
  if (database_->isLost()) {
    EXPECT_TRUE(waitUntil([&] { return !server_.finds(name_); })) << "a lost database stays";
  } else {
    EXPECT_TRUE(server_.finds(name_)) << "a database that is there is not found";
  }
  return lost;
}

bool logGoesOn(const Daemon& server) {
  static int number = 0;
  const std::string text = "asked again " + std::to_string(++number) + ".";
  RawConnection client = server.rawConnection();
  const auto reply = client.ask(raising(text));
  return reply && reply->kind == 0 && server.log().find(text) != std::string::npos;
}

}  // namespace sorvane::test
