// Asks a name server by the C++ library of this tree, through its public header.
//
//   libsorvane_client HOST PORT TIMEOUT ping|list|states|alerts|host-info|watch
//   libsorvane_client HOST PORT TIMEOUT find NAME
//   libsorvane_client HOST PORT TIMEOUT set-state|set-alert NAME TEXT
//   libsorvane_client HOST PORT TIMEOUT register NAME TYPE HOST-OF-THE-DATABASE
//   libsorvane_client HOST PORT TIMEOUT wait|wait-gone NAME SECONDS
//   libsorvane_client HOST PORT TIMEOUT wait-state NAME STATE SECONDS
//
// It prints JSON, a value for each line; `watch` and `register` go on until SIGTERM. The status is
// 0 for done, 1 if the server has refused or has nothing, and 3 if it was not reached.
#include <sorvane/client.h>
#include <unistd.h>

#include <cmath>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace sorvane::client;
using Words = std::vector<std::string>;
using Members = std::vector<std::pair<std::string, std::string>>;

constexpr int kDone = 0;
constexpr int kNo = 1;
constexpr int kWrongUsage = 2;
constexpr int kUnreached = 3;

std::string quoted(const std::string& text) {
  std::string json = "\"";
  for (const char each : text) {
    if (static_cast<unsigned char>(each) < ' ') {
      char code[8];
      std::snprintf(code, sizeof code, "\\u%04x", static_cast<unsigned>(each));
      json += code;
    } else {
      json += each == '"' || each == '\\' ? std::string{'\\', each} : std::string{each};
    }
  }
  return json + "\"";
}

/// One line, which is out when this returns.
void print(const Members& members) {
  std::string json;
  for (const auto& [key, value] : members) {
    json += (json.empty() ? "{" : ", ") + quoted(key) + ": " + quoted(value);
  }
  std::puts((json + "}").c_str());
  std::fflush(stdout);
}

std::string stateOf(const Entry& entry) { return entry.state.empty() ? "running" : entry.state; }

Members membersOf(const Entry& entry) {
  return {{"name", entry.name},      {"number", std::to_string(entry.number)},
          {"host", entry.host},      {"type", entry.type},
          {"state", stateOf(entry)}, {"alert", entry.alert}};
}

int failed(const Error& error) {
  std::fprintf(stderr, "%s\n", error.reason.c_str());
  const bool isNo = error.code == ErrorCode::refused || error.code == ErrorCode::notFound ||
                    error.code == ErrorCode::unsupported;
  return isNo ? kNo : kUnreached;
}

template <typename Value>
int finished(const Result<Value>& result) {
  return result ? kDone : failed(result.error());
}

/// SIGTERM, and the signal by which a callback ends the program.
sigset_t endingSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGUSR1);
  return signals;
}

/// True if it was SIGTERM.
bool waitForTheEnd() {
  const sigset_t signals = endingSignals();
  int number = 0;
  sigwait(&signals, &number);
  return number == SIGTERM;
}

int ask(Client& client, const Words& words) {
  const std::string& action = words.front();
  if (action == "ping") {
    return finished(client.ping());
  }
  if (action == "find") {
    const auto found = client.find(words.at(1));
    if (found) print(membersOf(*found));
    return finished(found);
  }
  if (action == "list" || action == "alerts") {
    const auto listed = client.list();
    for (const Entry& each : listed ? *listed : std::vector<Entry>()) {
      if (action == "list" || !each.alert.empty()) print(membersOf(each));
    }
    return finished(listed);
  }
  if (action == "states") {
    const auto states = client.states();
    for (const auto& [name, state] : states ? *states : std::vector<DatabaseState>()) {
      print({{"name", name}, {"state", state}});
    }
    return finished(states);
  }
  if (action == "host-info") {
    const auto host = client.hostInfo();
    if (host) {
      print({{"name", host->name}, {"address", host->address}, {"version", host->version}});
    }
    return finished(host);
  }
  if (action == "set-state") {
    return finished(client.setState(words.at(1), words.at(2)));
  }
  return action == "set-alert" ? finished(client.setAlert(words.at(1), words.at(2))) : kWrongUsage;
}

/// Goes on trying, as the library does; that the first attempt has failed is the outcome.
int holdName(const NameServer& server, const Words& words) {
  std::mutex mutex;
  std::condition_variable told;
  std::vector<Registration::Status> statuses;
  Registration::Options options;
  options.name = words.at(1);
  options.type = words.at(2);
  options.host = words.at(3);
  options.onStatus = [&](const Registration::Status& status) {
    const std::lock_guard<std::mutex> hold(mutex);
    statuses.push_back(status);
    told.notify_all();
  };
  const auto registration = Registration::start(server, options);
  if (!registration) {
    return failed(registration.error());
  }
  Registration::Status first;
  {
    std::unique_lock<std::mutex> hold(mutex);
    told.wait(hold, [&] { return !statuses.empty(); });
    first = statuses.front();
  }
  if (first.kind != Registration::Status::Kind::registered) {
    std::fprintf(stderr, "%s\n", first.reason.c_str());
    return first.kind == Registration::Status::Kind::away ? kUnreached : kNo;
  }
  print({{"name", options.name}, {"number", std::to_string(first.number)}});
  waitForTheEnd();
  return kDone;
}

Watch::Options watchOptions() {
  Watch::Options options;
  options.pollEvery = std::chrono::milliseconds(50);
  return options;
}

int watch(const NameServer& server) {
  Watch::Options options = watchOptions();
  options.onChange = [](const Change& change) {
    const char* const kinds[] = {"came", "changed", "went"};
    Members members = membersOf(change.entry);
    members.emplace_back("change", kinds[static_cast<int>(change.kind)]);
    print(members);
  };
  options.onStatus = [wasCurrent = false](const Watch::Status& status) mutable {
    wasCurrent = wasCurrent || status.current;
    if (!wasCurrent) kill(getpid(), SIGUSR1);
  };
  {
    const auto watch = Watch::start(server, options);
    if (!watch || waitForTheEnd()) {
      return finished(watch);
    }
  }
  // The watch would try again for ever. What kind of failure it has is asked for once.
  auto client = Client::connect(server);
  const auto listed = client ? client->list() : client.error();
  return listed ? kUnreached : failed(listed.error());
}

/// What a watch has told.
struct Picture {
  std::map<std::string, Entry> entries;
  bool isCurrent = false;
};

int waitUntil(const NameServer& server, const std::string& seconds,
              const std::function<bool(const Picture& picture)>& isSo) {
  std::mutex mutex;
  std::condition_variable changed;
  Picture picture;
  Watch::Options options = watchOptions();
  options.onChange = [&](const Change& change) {
    const std::lock_guard<std::mutex> hold(mutex);
    picture.entries.erase(change.entry.name);
    if (change.kind != Change::Kind::gone) picture.entries.emplace(change.entry.name, change.entry);
    changed.notify_all();
  };
  options.onStatus = [&](const Watch::Status& status) {
    const std::lock_guard<std::mutex> hold(mutex);
    picture.isCurrent = status.current;
    changed.notify_all();
  };
  const auto watch = Watch::start(server, options);
  if (!watch) {
    return failed(watch.error());
  }
  std::unique_lock<std::mutex> hold(mutex);
  const std::chrono::duration<double> limit(std::strtod(seconds.c_str(), nullptr));
  if (changed.wait_for(hold, limit, [&] { return isSo(picture); })) {
    return kDone;
  }
  return picture.isCurrent ? kNo : kUnreached;
}

int carryOut(const NameServer& server, const Words& words) {
  const std::string& action = words.front();
  if (action == "register") {
    return holdName(server, words);
  }
  if (action == "watch") {
    return watch(server);
  }
  if (action == "wait") {
    return waitUntil(server, words.at(2),
                     [&](const Picture& picture) { return picture.entries.contains(words[1]); });
  }
  if (action == "wait-state") {
    return waitUntil(server, words.at(3), [&](const Picture& picture) {
      const auto found = picture.entries.find(words[1]);
      return found != picture.entries.end() && stateOf(found->second) == words[2];
    });
  }
  if (action == "wait-gone") {
    return waitUntil(server, words.at(2), [&](const Picture& picture) {
      return picture.isCurrent && !picture.entries.contains(words[1]);
    });
  }
  auto client = Client::connect(server);
  return client ? ask(*client, words) : failed(client.error());
}

}  // namespace

int main(int count, char** texts) {
  if (count < 5) {
    return kWrongUsage;
  }
  const sigset_t signals = endingSignals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  const auto limit = std::chrono::milliseconds(std::lround(std::strtod(texts[3], nullptr) * 1000));
  const NameServer server{texts[1], static_cast<std::uint16_t>(std::atoi(texts[2])), limit, limit};
  return carryOut(server, Words(texts + 4, texts + count));
}
