// A Registration against the real name server, restarted and stopped, and against scripted ones.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "clients/cpp/ScriptedNameServer.h"
#include "integration/Daemon.h"
#include "platform/client/FakeResolver.h"
#include "sorvane/client.h"
#include "support/ForkedPart.h"
#include "support/ScriptedPeer.h"
#include "support/WireBytes.h"

namespace sorvane::client {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Status = Registration::Status;
using Kind = Registration::Status::Kind;

/// What a registration has told.
class Told {
 public:
  void operator()(const Status& status) {
    const std::lock_guard<std::mutex> hold(mutex_);
    all_.push_back(status);
    changed_.notify_all();
  }
  /// Waits until it has told this kind so many times.
  [[nodiscard]] bool has(Kind kind, int times = 1) {
    std::unique_lock<std::mutex> hold(mutex_);
    return changed_.wait_for(hold, test::kPatience, [&] {
      return std::count_if(all_.begin(), all_.end(),
                           [&](const Status& each) { return each.kind == kind; }) >= times;
    });
  }
  [[nodiscard]] Status last() {
    const std::lock_guard<std::mutex> hold(mutex_);
    return all_.empty() ? Status() : all_.back();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Status> all_;
};

NameServer at(int port) {
  NameServer server;
  server.port = static_cast<std::uint16_t>(port);
  return server;
}

Registration::Options named(const std::string& name) {
  Registration::Options options;
  options.name = name;
  return options;
}

Registration started(const NameServer& server, Registration::Options options) {
  auto registration = Registration::start(server, std::move(options));
  EXPECT_TRUE(registration) << registration.error().reason;
  return std::move(registration).value();
}

/// How long the destructor takes.
Clock::duration endOf(std::optional<Registration> registration) {
  const auto begin = Clock::now();
  registration.reset();
  return Clock::now() - begin;
}

/// A port of 127.0.0.1 that lets nobody in: the queue of a listener that accepts nothing is full
/// after its first connection.
class FullListener {
 public:
  FullListener() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* const place = reinterpret_cast<sockaddr*>(&address);
    socklen_t size = sizeof address;
    EXPECT_EQ(bind(listener_, place, size), 0);
    EXPECT_EQ(getsockname(listener_, place, &size), 0);
    EXPECT_EQ(listen(listener_, 0), 0);
    EXPECT_EQ(connect(first_, place, size), 0);
    port_ = ntohs(address.sin_port);
  }
  ~FullListener() {
    close(first_);
    close(listener_);
  }
  FullListener(const FullListener&) = delete;
  FullListener& operator=(const FullListener&) = delete;

  [[nodiscard]] int port() const { return port_; }

 private:
  const int listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int first_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  int port_ = 0;
};

class ARegistration : public testing::Test {
 protected:
  [[nodiscard]] std::optional<Entry> entry(const std::string& name) const {
    auto client = Client::connect(at(server_.basePort()));
    const auto listed = client ? client->list() : client.error();
    if (listed) {
      for (const Entry& each : *listed) {
        if (each.name == name) return each;
      }
    }
    return std::nullopt;
  }

  test::Daemon server_;
  Told told_;
};

TEST_F(ARegistration, HoldsItsNameWhileItLives) {
  server_.start();
  std::vector<int> numbers;
  Registration::Options options = named("db1");
  options.type = "special";
  options.host = "hosta";
  options.listen = [&](int number) {
    EXPECT_FALSE(server_.finds("db1"));
    numbers.push_back(number);
    return numbers.size() == 2;
  };
  Registration registration = started(at(server_.basePort()), options);
  const auto number = registration.waitUntilRegistered(test::kPatience);
  ASSERT_TRUE(number);
  EXPECT_EQ(numbers, (std::vector<int>{server_.basePort() + 1, server_.basePort() + 2}));
  EXPECT_EQ(*number, numbers[1]);
  const auto found = entry("db1");
  ASSERT_TRUE(found);
  EXPECT_EQ(found->number, *number);
  EXPECT_EQ(found->host, "hosta");
  EXPECT_EQ(found->type, "special");
  Registration moved = std::move(registration);
  EXPECT_LT(endOf(std::move(moved)), 100ms);
  EXPECT_TRUE(test::waitUntil([&] { return !server_.finds("db1"); }));
}

TEST_F(ARegistration, IsBackAfterARestartWithItsNumberStateAndAlert) {
  server_.start();
  // The number that the name server gives out first is that of another one.
  ASSERT_TRUE(server_.registers("db0"));
  Registration::Options options = named("db1");
  options.onStatus = std::ref(told_);
  Registration registration = started(at(server_.basePort()), options);
  EXPECT_TRUE(registration.setState("starting"));
  EXPECT_TRUE(registration.setState("running well"));
  EXPECT_TRUE(registration.setAlert("disk nearly full"));
  ASSERT_TRUE(told_.has(Kind::registered));
  const int number = told_.last().number;
  server_.kill();
  ASSERT_TRUE(told_.has(Kind::away));
  EXPECT_EQ(told_.last().number, number);
  EXPECT_NE(told_.last().reason, "");
  server_.start();
  const auto back = Clock::now();
  ASSERT_TRUE(told_.has(Kind::registered, 2));
  EXPECT_LT(Clock::now() - back, 3s);
  const auto found = entry("db1");
  ASSERT_TRUE(found);
  EXPECT_EQ(found->number, number);
  EXPECT_EQ(found->state, "running well");
  EXPECT_EQ(found->alert, "disk nearly full");
}

TEST_F(ARegistration, NoticesANameServerThatHangs) {
  server_.start();
  NameServer server = at(server_.basePort());
  server.replyLimit = 100ms;
  server.connectLimit = 100ms;
  Registration::Options options = named("db1");
  options.checkEvery = 20ms;
  options.onStatus = std::ref(told_);
  const Registration registration = started(server, options);
  ASSERT_TRUE(told_.has(Kind::registered));
  kill(server_.process(), SIGSTOP);
  EXPECT_TRUE(told_.has(Kind::away));
  kill(server_.process(), SIGCONT);
  EXPECT_TRUE(told_.has(Kind::registered, 2));
}

TEST_F(ARegistration, WaitsWhileAnotherOneHasItsName) {
  server_.start();
  Registration::Options options = named("db1");
  options.checkEvery = 200ms;  // meanwhile it is seen that the other one has gone
  options.onStatus = std::ref(told_);
  Registration registration = started(at(server_.basePort()), options);
  EXPECT_TRUE(registration.setState("ours"));
  ASSERT_TRUE(told_.has(Kind::registered));
  ASSERT_TRUE(server_.registers("db1", "otherhost"));
  ASSERT_TRUE(told_.has(Kind::taken));
  EXPECT_NE(told_.last().reason.find("otherhost"), std::string::npos);
  EXPECT_EQ(entry("db1")->host, "otherhost");
  server_.unregisters("db1");
  ASSERT_TRUE(told_.has(Kind::registered, 2));
  EXPECT_EQ(entry("db1")->state, "ours");
}

TEST_F(ARegistration, NoticesThatAnotherOneHasItsNameHoweverOftenItsStateIsSet) {
  server_.start();
  Registration::Options options = named("db1");
  options.checkEvery = 200ms;
  options.onStatus = std::ref(told_);
  Registration registration = started(at(server_.basePort()), options);
  ASSERT_TRUE(told_.has(Kind::registered));
  ASSERT_TRUE(server_.registers("db1", "otherhost"));
  const auto end = Clock::now() + 5s;
  while (registration.status().kind != Kind::taken && Clock::now() < end) {
    ASSERT_TRUE(registration.setState("busy"));
    std::this_thread::sleep_for(20ms);
  }
  EXPECT_EQ(registration.status().kind, Kind::taken);
}

TEST_F(ARegistration, LooksSoonAfterItsStartWhetherItStillHasItsName) {
  server_.start();
  Registration::Options options = named("db1");
  options.onStatus = std::ref(told_);
  const Registration registration = started(at(server_.basePort()), options);
  ASSERT_TRUE(told_.has(Kind::registered));
  ASSERT_TRUE(server_.registers("db1"));
  server_.unregisters("db1");
  const auto end = Clock::now() + 5s;
  while (!entry("db1") && Clock::now() < end) {
    std::this_thread::sleep_for(20ms);
  }
  EXPECT_TRUE(entry("db1"));
}

TEST(RegistrationThatWasForgotten, LooksAsSoonAfterItHasRegisteredAgainAsAfterItsStart) {
  test::ScriptedNameServer server([](const test::RequestTexts&) {
    return test::frameOfTexts(
        {{"portNumber", "20300"}, {"reconnectPort", "db1"}, {"notFound", "db1"}});
  });
  const Registration registration = started(at(server.port()), named("db1"));
  ASSERT_TRUE(server.isAsked("findPort"));
  const auto first = Clock::now();
  ASSERT_TRUE(server.isAsked("reconnectPort"));
  ASSERT_TRUE(server.isAsked("findPort", 2));
  EXPECT_LT(Clock::now() - first, 1900ms);  // a second, and not two
}

TEST_F(ARegistration, KeepsTheNumberThatItWasGiven) {
  server_.start();
  Registration::Options options = named("db1");
  options.number = 31999;
  const Registration registration = started(at(server_.basePort()), options);
  EXPECT_EQ(registration.waitUntilRegistered(test::kPatience).value(), 31999);
  EXPECT_EQ(entry("db1")->number, 31999);
}

TEST(RegistrationThatIsRefused, SaysSoAndTriesAgain) {
  test::ScriptedNameServer server([](const test::RequestTexts&) { return test::nilFrame(); });
  Told told;
  Registration::Options options = named("db1");
  options.onStatus = std::ref(told);
  const Registration registration = started(at(server.port()), options);
  ASSERT_TRUE(told.has(Kind::refused));
  EXPECT_NE(told.last().reason, "");
  EXPECT_EQ(registration.waitUntilRegistered(1ms).error().code, ErrorCode::refused);
  const auto first = Clock::now();
  const int attempts = server.timesAsked("newPort");
  ASSERT_TRUE(server.isAsked("newPort", attempts + 1));
  EXPECT_LT(Clock::now() - first, 3s);
}

TEST(RegistrationThatIsRefused, TellsWhenAStateWasNotTaken) {
  test::ScriptedNameServer server([](const test::RequestTexts& request) {
    if (request.contains("action")) return test::frameOfTexts({{"result", "failed"}});
    if (request.contains("newPort")) return test::frameOfTexts({{"portNumber", "20300"}});
    return test::frameOfBody("");
  });
  std::atomic<int> errors = 0;
  Registration::Options options = named("db1");
  options.onError = [&](const Error& error) { errors += error.code == ErrorCode::refused; };
  Registration registration = started(at(server.port()), options);
  EXPECT_TRUE(registration.setState("a"));
  EXPECT_EQ(registration.setState("\xff").error().code, ErrorCode::invalidArgument);
  EXPECT_TRUE(test::waitUntil([&] { return errors == 1; }));
}

TEST(RegistrationThatIsRefused, AsksForNoMoreThanAHundredNumbers) {
  test::ScriptedNameServer server([](const test::RequestTexts&) {
    return test::frameOfTexts({{"portNumber", "20300"}});
  });
  Told told;
  Registration::Options options = named("db1");
  options.listen = [](int) { return false; };
  options.onStatus = std::ref(told);
  const Registration registration = started(at(server.port()), options);
  ASSERT_TRUE(told.has(Kind::refused));
  EXPECT_EQ(server.timesAsked("newPort"), 100);
}

TEST(RegistrationThatEnds, DoesNotWaitForASilentNameServer) {
  test::ScriptedNameServer server([](const test::RequestTexts&) { return std::string(); });
  Registration registration = started(at(server.port()), named("db1"));
  ASSERT_TRUE(server.isAsked("newPort"));
  EXPECT_LT(endOf(std::move(registration)), 100ms);
}

TEST(RegistrationThatEnds, DoesNotWaitForTheNextAttempt) {
  Told told;
  Registration::Options options = named("db1");
  options.onStatus = std::ref(told);
  Registration registration = started(at(test::closedPort()), options);
  ASSERT_TRUE(told.has(Kind::away));
  EXPECT_LT(endOf(std::move(registration)), 100ms);
}

TEST(RegistrationThatEnds, DoesNotWaitForAHostThatDoesNotAnswer) {
  const FullListener listener;
  NameServer server = at(listener.port());
  server.host = "127.0.0.1";
  Registration registration = started(server, named("db1"));
  EXPECT_EQ(registration.waitUntilRegistered(20ms).error().code, ErrorCode::timedOut);
  EXPECT_EQ(registration.status().reason, "the registration has just begun");
  EXPECT_LT(endOf(std::move(registration)), 100ms);
}

TEST(RegistrationThatEnds, DoesNotWaitForALookUp) {
  NameServer server = at(test::closedPort());
  server.host = "slow.example";
  const test::HangingName hanging(server.host);
  Registration registration = started(server, named("db1"));
  EXPECT_FALSE(registration.waitUntilRegistered(20ms));
  EXPECT_LT(endOf(std::move(registration)), 100ms);
}

TEST(RegistrationCallback, MayDestroyItsObjectAndIsNotCalledAgain) {
  Told told;
  std::mutex mutex;
  std::optional<Registration> registration;
  std::atomic<int> calls = 0;
  Registration::Options options = named("db1");
  options.onStatus = [&](const Status&) {
    const std::lock_guard<std::mutex> hold(mutex);
    EXPECT_EQ(registration->waitUntilRegistered(1h).error().code, ErrorCode::timedOut);
    registration.reset();
    ++calls;
  };
  {
    const std::lock_guard<std::mutex> hold(mutex);
    registration.emplace(started(at(test::closedPort()), options));
  }
  EXPECT_TRUE(test::waitUntil([&] { return calls == 1; }));
  const std::lock_guard<std::mutex> hold(mutex);
  EXPECT_FALSE(registration);
}

TEST(RegistrationCallback, EndsTheProgramByAnException) {
  const auto end = test::outputOfPart([] {
    Registration::Options options = named("db1");
    options.onStatus = [](const Status&) { throw 1; };
    const Registration registration = started(at(test::closedPort()), options);
    std::this_thread::sleep_for(test::kPatience);
  });
  EXPECT_EQ(end.status, -SIGABRT);
}

TEST(RegistrationCallback, RunsOnAThreadThatTakesNoSignals) {
  std::atomic<int> blocked = -1;
  Registration::Options options = named("db1");
  options.onStatus = [&](const Status&) {
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    blocked = sigismember(&mask, SIGTERM);
  };
  const Registration registration = started(at(test::closedPort()), options);
  EXPECT_TRUE(test::waitUntil([&] { return blocked == 1; }));
}

TEST(RegistrationFromManyThreads, TakesStatesFromEachOfThem) {
  test::Daemon server;
  server.start();
  Registration registration = started(at(server.basePort()), named("db1"));
  std::vector<std::thread> threads;
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back([&, number] {
      for (int count = 0; count < 50; ++count) {
        EXPECT_TRUE(registration.setState(std::to_string(number)));
        EXPECT_TRUE(registration.setAlert(registration.status().reason));
      }
      EXPECT_TRUE(registration.waitUntilRegistered(test::kPatience));
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(registration.setState("last"));
  EXPECT_TRUE(test::waitUntil([&] {
    auto client = Client::connect(at(server.basePort()));
    return client && client->states()->front().state == "last";
  }));
}

TEST(RegistrationAfterAFork, IsLeftToTheParent) {
  test::Daemon server;
  server.start();
  Registration registration = started(at(server.basePort()), named("db1"));
  ASSERT_TRUE(registration.waitUntilRegistered(test::kPatience));
  test::inOwnProcess([&] { EXPECT_LT(endOf(std::move(registration)), 100ms); });
  EXPECT_TRUE(registration.setState("held by the parent"));
  EXPECT_TRUE(test::waitUntil([&] {
    auto client = Client::connect(at(server.basePort()));
    return client && client->states()->front().state == "held by the parent";
  }));
  EXPECT_EQ(registration.status().kind, Kind::registered);
}

}  // namespace
}  // namespace sorvane::client
