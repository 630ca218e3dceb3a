#include "soak/Work.h"

#include <utility>

#include "platform/Message.h"
#include "siege/Guest.h"
#include "support/RawConnection.h"
#include "support/WaitUntil.h"

namespace sorvane::soak {
namespace {

using siege::Peer;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr int kWatchers = 200;
constexpr int kUsers = 50;

/// A text under a key of the reply; empty when there is none.
std::string ask(Peer& peer, const Message& request, std::string_view key) {
  const auto body = peer.ask(request);
  Message reply;
  if (!body || reply.readBody(*body) != nullptr) {
    return "";
  }
  return std::string(reply.text(key).value_or(""));
}

Message action(std::string_view word) { return Message({{"action", word}}); }

Message lookup(const std::string& name) { return Message({{"findPort", name}, {"portHost", "h"}}); }

Message reconnection(std::string_view name) {
  return Message(
      {{"reconnectPort", name}, {"portNumber", "1"}, {"portHost", "h"}, {"portType", "t"}});
}

Message report(std::string_view what, const std::string& name, const std::string& text) {
  return Message({{"action", what}, {"databaseName", name}, {"state", text}});
}

/// A text of a length between 1 and 2,000 bytes that differs from step to step.
std::string textOf(long step) {
  return std::string(static_cast<std::size_t>(1 + step * 7919 % 2000), 's');
}

std::function<void()> lookups(Scene& scene) {
  return
      [&scene, peer = std::make_shared<Peer>(scene.port(), test::kPatience), step = 0]() mutable {
        const int database = step++ % Scene::kStaying;
        const Message request = lookup(Scene::nameOf(database));
        const Clock::time_point begin = Clock::now();
        const std::string number = ask(*peer, request, "portNumber");
        scene.addTime(std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
        scene.expect(number == scene.numberOf(database), "a lookup returned \"" + number + '"');
      };
}

std::function<void()> databasesThatComeAndGo(Scene& scene) {
  return [&scene, guest = std::make_shared<siege::Guest>(scene.port()), step = 0L]() mutable {
    guest->visit("guest" + std::to_string(step++));
    (void)guest->takeSlowest();  // forgets its times
    scene.expect(guest->complaint().empty(), guest->complaint());
  };
}

std::function<void()> watchersThatAsk(Scene& scene) {
  return [&scene, step = 0]() mutable {
    Peer& watcher = scene.watchers()[static_cast<std::size_t>(step++ % kWatchers)];
    const std::string changed = ask(watcher, action("didPortsChange"), "result");
    scene.expect(changed == "YES" || changed == "NO", "a watcher was told \"" + changed + '"');
    if (changed == "YES") {
      const std::string states = ask(watcher, action("databaseStates"), "result");
      scene.expect(states.find(Scene::nameOf(0) + ':') != std::string::npos,
                   "the states lack a database");
    }
  };
}

std::function<void()> watchersThatWait(Scene& scene) {
  return [&scene, watcher = std::make_shared<Peer>(scene.port(), test::kPatience),
          step = 0]() mutable {
    constexpr int kStepsOfOneThatGoes = 16;
    const Message waiting({{"action", "awaitPortChanges"}, {"timeout", "1"}});
    const std::string told = ask(*watcher, waiting, "result");
    scene.expect(told == "YES" || told == "NO", "one who waits was told \"" + told + '"');
    if (step++ % kStepsOfOneThatGoes == 0) {
      Peer leaver(scene.port(), test::kPatience);
      const std::string bytes = test::frame(waiting);
      scene.expect(leaver.send(bytes + bytes + bytes.substr(0, bytes.size() / 2)),
                   "a connection was closed");
      leaver.abort();
    }
  };
}

std::function<void()> statesAndAlerts(Scene& scene) {
  return
      [&scene, tool = std::make_shared<Peer>(scene.port(), test::kPatience), step = 0L]() mutable {
        ++step;
        const std::string name = Scene::nameOf(static_cast<int>(step % Scene::kStaying));
        const std::string_view what = step % 3 == 0 ? "setAlertState" : "setDatabaseState";
        scene.expect(ask(*tool, report(what, name, textOf(step)), "result") == "success",
                     "a state was not taken");
      };
}

std::function<void()> preferences(Scene& scene) {
  return [&scene, tool = std::make_shared<Peer>(scene.port(), test::kPatience),
          step = 0L]() mutable {
    const std::string user = "user" + std::to_string(step++ % kUsers);
    const std::string text = textOf(step);
    const Message change({{"action", "set_userpreferences"}, {"key", user}, {"databases", text}});
    scene.expect(ask(*tool, change, "result") == "succeed", "a preference was not taken");
    const Message question({{"action", "get_userpreferences"}, {"key", user}});
    scene.expect(ask(*tool, question, "databases") == text, "a preference is not as it was set");
  };
}

std::function<void()> namesLeftBehind(Scene& scene) {
  return [&scene, step = 0]() mutable {
    const std::string which = std::to_string(step++ % 100);
    Peer database(scene.port(), test::kPatience);
    scene.expect(database.ask(reconnection("behind" + which)).has_value() &&
                     database.ask(reconnection("last" + which)).has_value(),
                 "a name was not taken");
  };
}

std::function<void()> connectionsThatAreCutOff(Scene& scene) {
  return [&scene, step = 0L]() mutable {
    Peer peer(scene.port(), test::kPatience);
    const std::string bytes = test::frame(reconnection("cut" + std::to_string(step++)));
    // Whole requests whose replies nobody takes, and a part of one.
    scene.expect(peer.send(bytes + bytes + bytes.substr(0, bytes.size() / 2)),
                 "a connection was closed");
    peer.abort();
  };
}

std::function<void()> toolsThatLook(Scene& scene) {
  return [&scene] {
    Peer tool(scene.port(), test::kPatience);
    scene.expect(!ask(tool, action("hostInfo"), "result").empty(), "no word about the host");
    scene.expect(!ask(tool, action("changeTimestamp"), "result").empty(), "no time of a change");
    scene.expect(ask(tool, action("needsRefresh"), "result") == "success", "no refresh");
    scene.expect(ask(tool, lookup("nobody"), "notFound") == "notFound", "nobody was found");
  };
}

constexpr Work kWorks[] = {
    {"lookups", microseconds(200), lookups},
    {"databases that come and go", milliseconds(5), databasesThatComeAndGo},
    {"watchers that ask", milliseconds(1), watchersThatAsk},
    {"watchers that wait", milliseconds(1), watchersThatWait},
    {"states and alerts", milliseconds(5), statesAndAlerts},
    {"preferences", milliseconds(20), preferences},
    {"names left behind", milliseconds(10), namesLeftBehind},
    {"connections that are cut off", milliseconds(10), connectionsThatAreCutOff},
    {"tools that look", milliseconds(20), toolsThatLook},
};

}  // namespace

std::string Scene::nameOf(int database) { return "staying" + std::to_string(database); }

void Scene::set() {
  for (int i = 0; i < kStaying; ++i) {
    Peer& database = databases_.emplace_back(port_, test::kPatience);
    const std::string name = nameOf(i);
    numbers_.push_back(
        ask(database, {{"newPort", ""}, {"portName", name}, {"portHost", "h"}, {"portType", "t"}},
            "portNumber"));
    expect(!numbers_.back().empty() && database.ask({{"acceptPort", ""}}).has_value(),
           name + " was not accepted");
  }
  for (int i = 0; i < kWatchers; ++i) {
    Peer& watcher = watchers_.emplace_back(port_, test::kPatience);
    expect(ask(watcher, action("watchPortChanges"), "result") == "succeed", "no watcher");
  }
}

void Scene::expect(bool well, const std::string& what) {
  if (!well) {
    const std::lock_guard<std::mutex> hold(lock_);
    complaint_ = complaint_.empty() ? what : complaint_;
  }
}

std::string Scene::complaint() const {
  const std::lock_guard<std::mutex> hold(lock_);
  return complaint_;
}

void Scene::addTime(double microseconds) {
  const std::lock_guard<std::mutex> hold(lock_);
  times_.push_back(microseconds);
}

std::vector<double> Scene::takeTimes() {
  const std::lock_guard<std::mutex> hold(lock_);
  return std::exchange(times_, {});
}

std::span<const Work> works() { return kWorks; }

Load::Load(Scene& scene) : steps_(works().size()) {
  for (const Work& each : works()) {
    clients_.push_back(each.begin(scene));
  }
}

void Load::start() {
  over_ = false;
  for (std::size_t i = 0; i < clients_.size(); ++i) {
    threads_.emplace_back([this, i] {
      while (!over_) {
        clients_[i]();
        ++steps_[i];
        std::this_thread::sleep_for(works()[i].pause);
      }
    });
  }
}

void Load::stop() {
  over_ = true;
  for (std::thread& each : threads_) {
    each.join();
  }
  threads_.clear();
}

std::vector<long> Load::steps() const { return {steps_.begin(), steps_.end()}; }

}  // namespace sorvane::soak
