#include "tools/FakeNameServer.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <stdexcept>

#include "support/WireBytes.h"

namespace sorvctl::test {

using sorvane::Message;
using sorvane::test::entry;
using sorvane::test::frameOfBody;
using sorvane::test::frameOfTexts;
using sorvane::test::PeerConnection;

namespace {

constexpr const char* kInstance = "run 1";
constexpr std::size_t kNamesOfPage = 2;                // few, so that there are pages
constexpr std::chrono::milliseconds kBetweenLooks{5};  // whether the client has gone

std::string textOfEntry(std::string_view key, const std::string& text) {
  return entry(key, text + '\0');
}

}  // namespace

std::string rowOf(const Texts& texts) {
  std::string row;
  for (const auto& [key, text] : texts) {
    row += textOfEntry(key, text);
  }
  return row;
}

FakeNameServer::FakeNameServer(Version version) : version_(version) {
  listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (bind(listener_, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
      getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0 ||
      listen(listener_, 16) != 0) {
    throw std::runtime_error("no port for a name server");
  }
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] { accept(); });
}

FakeNameServer::~FakeNameServer() {
  {
    const std::lock_guard hold(mutex_);
    ending_ = true;
  }
  changed_.notify_all();
  shutdown(listener_, SHUT_RDWR);
  thread_.join();
  for (auto& [socket, thread] : served_) {
    shutdown(socket, SHUT_RDWR);
    thread.join();
    close(socket);
  }
  close(listener_);
}

Options FakeNameServer::options() const {
  Options options;
  options.host = "127.0.0.1";
  options.port = port_;
  return options;
}

void FakeNameServer::has(const std::string& name, const Texts& texts) {
  change(name, {0, false, texts});
}

void FakeNameServer::loses(const std::string& name) { change(name, {0, true, {}}); }

void FakeNameServer::lapses(const std::string& name) {
  const std::lock_guard hold(mutex_);
  entries_[name].texts.clear();
}

void FakeNameServer::change(const std::string& name, Entry entry) {
  {
    const std::lock_guard hold(mutex_);
    entry.changed = ++sequence_;
    entries_[name] = std::move(entry);
  }
  changed_.notify_all();
}

int FakeNameServer::asked(const std::string& what) const {
  const std::lock_guard hold(mutex_);
  const auto found = asked_.find(what);
  return found == asked_.end() ? 0 : found->second;
}

void FakeNameServer::accept() {
  while (true) {
    const int accepted = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (accepted < 0) {
      return;
    }
    served_.emplace_back(accepted, std::thread([this, accepted] { serve(accepted); }));
  }
}

void FakeNameServer::serve(int socket) {
  ++connections_;
  PeerConnection client(socket);
  std::uint64_t seen = 0;
  bool first = true;
  while (const auto body = client.receiveRequest()) {
    Message request;
    (void)request.readBody(*body);
    if (hangs_) {
      client.waitForClose();
      break;
    }
    const std::string what(request.text("action").value_or(
        request.entries().empty() ? "" : request.entries().front().key));
    {
      const std::lock_guard hold(mutex_);
      ++asked_[what];
      const bool isQuestion = what == "awaitPortChanges" || what == "didPortsChange";
      if (isQuestion && std::exchange(first, false)) {
        seen = ~std::uint64_t{0};  // no change has it: the first reply is YES
      }
    }
    client.send(reply(client, request, seen));
  }
  --connections_;
  shutdown(socket, SHUT_RDWR);
}

std::string FakeNameServer::reply(PeerConnection& client, const Message& request,
                                  std::uint64_t& seen) {
  const std::string action(request.text("action").value_or(""));
  const bool earlier = version_ == Version::earlier;
  if (action == "awaitPortChanges" && !earlier) {
    return awaited(client, seen);
  }
  const std::lock_guard hold(mutex_);
  if (action == "portChanges" && !earlier) {
    return changes(request);
  }
  if (action == "didPortsChange") {
    return frameOfTexts({{"result", std::exchange(seen, sequence_) != sequence_ ? "YES" : "NO"}});
  }
  if (action == "databaseStates") {
    return lists();
  }
  if (request.contains("findPort")) {
    const auto found = entries_.find(std::string(*request.text("findPort")));
    if (found == entries_.end() || found->second.gone) {
      return frameOfTexts({{"notFound", "notFound"}});
    }
    return frameOfBody(rowOf({{"portName", found->first}, {"portNumber", "20222"}}));
  }
  return frameOfBody("");
}

std::string FakeNameServer::awaited(PeerConnection& client, std::uint64_t& seen) {
  std::unique_lock hold(mutex_);
  while (!ending_ && seen == sequence_) {
    changed_.wait_for(hold, kBetweenLooks);
    hold.unlock();
    const bool isGone = client.isClosedByPeer(std::chrono::milliseconds(0));
    hold.lock();
    if (isGone) {
      break;
    }
  }
  seen = sequence_;
  return ending_ ? "" : frameOfTexts({{"result", "YES"}});
}

std::string FakeNameServer::changes(const Message& request) {
  const bool known = request.text("instance") == kInstance;
  const std::uint64_t since = known ? std::stoull(std::string(*request.text("since"))) : 0;
  std::vector<std::pair<std::uint64_t, std::string>> due;
  for (const auto& [name, each] : entries_) {
    if (each.changed > since && (known || !each.gone)) {
      due.emplace_back(each.changed, name);
    }
  }
  std::sort(due.begin(), due.end());
  const bool more = due.size() > kNamesOfPage;
  due.resize(std::min(due.size(), kNamesOfPage));
  const std::uint64_t sequence = more ? due.back().first : sequence_;
  std::string body = rowOf({{"instance", kInstance},
                            {"sequence", std::to_string(sequence)},
                            {"more", more ? "YES" : "NO"},
                            {"restart", known ? "NO" : "YES"}});
  int place = 0;
  for (const auto& [changed, name] : due) {
    const Entry& each = entries_.at(name);
    std::string row = rowOf({{"name", name}});
    row += each.gone ? rowOf({{"gone", "YES"}}) : rowOf({{"portNumber", "20222"}});
    body += entry(std::to_string(place++), row + rowOf(each.texts));
  }
  return frameOfBody(body);
}

std::string FakeNameServer::lists() {
  std::string states;
  for (const auto& [name, each] : entries_) {
    if (!each.gone) {
      states += (states.empty() ? "" : "|") + name + ":running";
    }
  }
  return frameOfTexts({{"result", states}, {"alerts", ""}});
}

}  // namespace sorvctl::test
