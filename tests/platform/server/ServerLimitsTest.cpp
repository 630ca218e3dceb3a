// What happens at the server's limits: connections, descriptors, exceptions that no command may
// raise.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <time.h>

#include <string>
#include <vector>

#include "platform/server/ServedDelegate.h"
#include "support/ForkedPart.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

using std::chrono::milliseconds;

double processSeconds() {
  timespec used{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
  return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
}

TEST(Server, ClosesAConnectionBeyondTheLimitAtOnceAndTakesTheNextWhenOneLeft) {
  Settings settings;
  settings.maxConnections = 3;
  ServedDelegate server(settings);
  const ConsoleLines console;
  std::vector<RawConnection> clients;
  for (int i = 0; i < 3; ++i) {
    clients.push_back(server.connect());
    ASSERT_TRUE(clients.back().ask(Message()));
  }
  RawConnection further = server.connect();
  EXPECT_TRUE(further.isClosedByPeer());
  EXPECT_TRUE(console.hold("3 connections are open already"));
  for (RawConnection& each : clients) {
    EXPECT_TRUE(each.ask(Message()));
  }
  clients.pop_back();
  EXPECT_TRUE(waitUntil([&] { return server.connect().ask(Message()).has_value(); }));
}

TEST(Server, WaitsWithoutSpinningWhenDescriptorsRunOutAndGoesOnWhenSomeAreFree) {
  inOwnProcess([] {
    ServedDelegate server;
    RawConnection first = server.connect();
    ASSERT_TRUE(first.ask(Message()));
    std::vector<RawConnection> waiting;
    for (int i = 0; i < 4; ++i) {
      waiting.push_back(server.connect());
      ASSERT_TRUE(waiting.back().ask(Message()));
    }
    // A socket for the client, whose accepted side no longer fits: every descriptor below is in
    // use.
    const int highest = waiting.back().descriptor() + 3;
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit before = limit;
    limit.rlim_cur = static_cast<rlim_t>(highest);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    RawConnection late = server.connect();
    ASSERT_TRUE(late.isConnected()) << "it waits in the system's queue";
    late.send(frame(Message()));

    // Time has to pass, for what it costs. Trying without a pause would take most of it.
    const double used = processSeconds();
    EXPECT_TRUE(late.staysSilent(milliseconds(400)));
    EXPECT_LT(processSeconds() - used, 0.1) << "accepting pauses between its attempts";
    EXPECT_TRUE(first.ask(Message())) << "those that are connected are served";

    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_TRUE(late.receiveFrame())
        << "and the one that waited is served as soon as there is room";
  });
}

TEST(Server, AnExceptionThatNoCommandMayRaiseEndsTheProcessWithOneLine) {
  const PartEnd part = outputOfPart([] {
    ServedDelegate server;
    RawConnection client = server.connect();
    client.send(frame(Message({{"raiseOther", ""}})));
    EXPECT_FALSE(client.receiveFrame());
  });
  EXPECT_EQ(part.status, -SIGABRT);
  EXPECT_NE(
      part.errors.find("an unexpected exception ends the process: what no command may raise\n"),
      std::string::npos)
      << part.errors;
}

TEST(Server, GoesOnAfterSignalsThatInterruptItsCalls) {
  struct sigaction action {};
  action.sa_handler = [](int) {};
  ASSERT_EQ(sigaction(SIGALRM, &action, nullptr), 0);  // without SA_RESTART: calls return EINTR
  ServedDelegate server;
  sigset_t alarms;
  sigemptyset(&alarms);
  sigaddset(&alarms, SIGALRM);
  const itimerval often{{0, 200}, {0, 200}};  // microseconds
  ASSERT_EQ(setitimer(ITIMER_REAL, &often, nullptr), 0);
  int answered = 0;
  // First those of the client are hit, on this thread; then, as it takes none, the server's.
  for (const int how : {SIG_UNBLOCK, SIG_BLOCK}) {
    ASSERT_EQ(pthread_sigmask(how, &alarms, nullptr), 0);
    for (int i = 0; i < 200; ++i) {
      NetConnection each;
      answered += each.connectToPort("127.0.0.1", server.port()) &&
                  each.sendDictionary(Message({{"echo", "x"}}));
    }
  }
  const itimerval never{};
  ASSERT_EQ(setitimer(ITIMER_REAL, &never, nullptr), 0);
  ASSERT_EQ(pthread_sigmask(SIG_UNBLOCK, &alarms, nullptr), 0);
  EXPECT_EQ(answered, 400);
}

}  // namespace
}  // namespace sorvane::test
