#include "siege/Crowd.h"

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "platform/Message.h"
#include "siege/Peer.h"
#include "support/RawConnection.h"
#include "support/WireBytes.h"

namespace sorvane::siege {
namespace {

using std::chrono::milliseconds;
using test::frame;

constexpr std::size_t kMegabyte = 1000000;  // a little less than the largest request

Message registration(std::string_view name) {
  return Message(
      {{"reconnectPort", name}, {"portNumber", "1"}, {"portHost", "h"}, {"portType", "t"}});
}

Message action(std::string_view word) { return Message({{"action", word}}); }

/// The name of a round, padded to a length.
std::string longName(std::string_view kind, long round, std::size_t bytes) {
  std::string name = std::string(kind) + std::to_string(round) + '.';
  name.resize(std::max(bytes, name.size()), 'x');
  return name;
}

/// The names of one connection, longer and longer texts, and a tool that wants all states.
std::function<void()> listsOfStates(Field& field) {
  return [&field, round = 0L]() mutable {
    Peer database(field.port);
    std::string many;
    for (int i = 0; i < 300; ++i) {
      many += frame(registration("state" + std::to_string(round) + "." + std::to_string(i)));
    }
    many += frame(registration(longName("state", round++, kMegabyte)));
    if (!database.send(many)) {
      return;
    }
    Peer tool(field.port);
    (void)tool.ask(action("databaseStates"));
  };
}

std::function<void()> longRequestsThatFail(Field& field) {
  std::string body = test::entry("findPort", std::string("without a host\0", 15));
  for (int i = 0; i < 60000; ++i) {
    body += test::entry("k" + std::to_string(i), std::string("v\0", 2));
  }
  return [&field, bytes = test::frameOfBody(body)] {
    Peer peer(field.port);
    if (peer.send(bytes) && peer.receive() && peer.lastReplyWasNil()) {
      ++field.failedRequests;
    }
  };
}

std::function<void()> preferencesWithoutEnd(Field& field) {
  return [&field, round = 0L]() mutable {
    Peer peer(field.port);
    (void)peer.ask(Message({{"action", "set_userpreferences"},
                            {"key", "user" + std::to_string(round++)},
                            {"databases", std::string(kMegabyte / 2, 'p')}}));
  };
}

std::function<void()> framesThatNeverEnd(Field& field) {
  const std::string whole = frame(registration(std::string(kMegabyte, 'u')));
  return [&field, part = whole.substr(0, whole.size() - 1),
          held = std::make_shared<std::deque<Peer>>()] {
    held->emplace_back(field.port);
    if (!held->back().send(part)) {
      held->pop_back();
      ++field.refusedConnections;
    }
    if (held->size() > 60) {
      held->pop_front();
    }
  };
}

std::function<void()> acceptancesOfNothing(Field& field) {
  return [&field, peer = std::make_shared<Peer>(field.port)]() mutable {
    constexpr int kAtOnce = 16;
    std::string bytes;
    for (int i = 0; i < kAtOnce; ++i) {
      bytes += frame(Message({{"acceptPort", ""}}));
    }
    bool going = peer->send(bytes);
    for (int i = 0; i < kAtOnce && going; ++i) {
      going = peer->receive().has_value();
      field.failedRequests += going && peer->lastReplyWasNil() ? 1 : 0;
    }
    if (!going) {
      peer = std::make_shared<Peer>(field.port);
    }
  };
}

std::function<void()> connectionsWithoutEnd(Field& field) {
  return [&field] {
    std::vector<Peer> peers;
    for (int i = 0; i < 20; ++i) {
      peers.emplace_back(field.port);
    }
    for (Peer& peer : peers) {
      peer.abort();
    }
  };
}

std::function<void()> launchersWithEscapes(Field& field) {
  return [&field] {
    Peer peer(field.port);
    (void)peer.ask(Message({{"action", "sorvexecConnectHost"},
                            {"hostName", "h"},
                            {"portHostAddress", "a"},
                            {"ethernetAddress", "\x1b[2J\nsorvinfo[1]: all is lost"}}));
  };
}

std::function<void()> namesByTheThousand(Field& field) {
  return [&field, round = 0L]() mutable {
    Peer peer(field.port);
    std::string bytes;
    for (int i = 0; i < 2000; ++i) {
      bytes += frame(registration(std::to_string(round) + "." + std::to_string(i)));
    }
    ++round;
    (void)peer.send(bytes);
  };
}

std::function<void()> namesLeftBehind(Field& field) {
  return [&field, round = 0L]() mutable {
    Peer peer(field.port);
    (void)peer.ask(registration(longName("behind", round++, kMegabyte)));
    (void)peer.ask(registration("last"));
  };
}

std::function<void()> repliesThatNobodyTakes(Field& field) {
  const auto peer = std::make_shared<Peer>(field.port);
  (void)peer->ask(registration(std::string(kMegabyte / 4, 'r')));
  std::string bytes;
  for (int i = 0; i < 100; ++i) {
    bytes += frame(action("databaseStates"));
  }
  return [&field, peer, bytes, held = std::make_shared<std::deque<Peer>>()] {
    held->emplace_back(field.port);
    (void)held->back().send(bytes);
    if (held->size() > 200) {
      held->pop_front();
    }
  };
}

std::function<void()> brokenFrames(Field& field) {
  return [&field] {
    Peer peer(field.port);
    if (peer.isConnected() && peer.send("GET / HTTP/1.0\r\n\r\n") && peer.isClosedByServer()) {
      ++field.refusedConnections;
    }
  };
}

std::function<void()> refreshesWithoutEnd(Field& field) {
  const std::string one = frame(Message({{"action", "needsRefresh"}, {"force", "YES"}}));
  std::string bytes;
  for (int i = 0; i < 500; ++i) {
    bytes += one;
  }
  return [&field, bytes] {
    Peer peer(field.port);
    (void)peer.send(bytes);
    peer.abort();
  };
}

constexpr Attack kAttacks[] = {
    {"long lists of states", milliseconds(50), listsOfStates},
    {"long requests that fail", milliseconds(100), longRequestsThatFail},
    {"preferences without end", milliseconds(100), preferencesWithoutEnd},
    {"frames that never end", milliseconds(20), framesThatNeverEnd},
    {"acceptances of nothing", milliseconds(5), acceptancesOfNothing},
    {"connections without end", milliseconds(10), connectionsWithoutEnd},
    {"launchers with escapes", milliseconds(10), launchersWithEscapes},
    {"names by the thousand", milliseconds(50), namesByTheThousand},
    {"names left behind", milliseconds(20), namesLeftBehind},
    {"replies that nobody takes", milliseconds(20), repliesThatNobodyTakes},
    {"broken frames", milliseconds(5), brokenFrames},
    {"refreshes without end", milliseconds(20), refreshesWithoutEnd},
};

}  // namespace

std::span<const Attack> attacks() { return kAttacks; }

}  // namespace sorvane::siege
