#include "integration/LookupLoad.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <utility>

#include "support/RawConnection.h"

namespace sorvane::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kUnderWay = 16;  // lookups of each connection
constexpr std::chrono::milliseconds kTick{20};

}  // namespace

struct LookupLoad::Peer {
  explicit Peer(RawConnection theConnection) : connection(std::move(theConnection)) {}

  RawConnection connection;
  std::size_t asked = 0;     // requests that were sent whole, or begun
  std::size_t sent = 0;      // bytes of the last one
  std::size_t answered = 0;  // replies that came whole
  std::size_t came = 0;      // bytes of the next one
  Clock::time_point last = Clock::now();
};

LookupLoad::LookupLoad(const Daemon& server, int connections, const std::vector<std::string>& names,
                       WhenClosed whenClosed)
    : server_(server), whenClosed_(whenClosed) {
  RawConnection asker = server.rawConnection();
  for (const std::string& name : names) {
    requests_.push_back(frame({{"findPort", name}, {"portHost", "localhost"}}));
    asker.send(requests_.back());
    const auto reply = asker.receiveFrame();
    replyBytes_.push_back(reply ? frameOfBody(reply->body) : "");
  }
  for (int i = 0; i < connections; ++i) {
    peers_.push_back(std::make_unique<Peer>(server.rawConnection()));
    Peer& peer = *peers_.back();
    peer.asked = peer.answered = static_cast<std::size_t>(i);  // they differ in what they ask
    fcntl(peer.connection.descriptor(), F_SETFL, O_NONBLOCK);
  }
  thread_ = std::thread([this] { run(); });
}

LookupLoad::~LookupLoad() { static_cast<void>(end()); }

std::string LookupLoad::end() {
  ends_ = true;
  if (thread_.joinable()) {
    thread_.join();
  }
  return complaint_;
}

std::chrono::microseconds LookupLoad::takeLongestSilence() {
  return std::chrono::microseconds(longestSilence_.exchange(0));
}

void LookupLoad::run() {
  std::vector<pollfd> watched(peers_.size());
  std::optional<Clock::time_point> end;
  for (;;) {
    bool isUnderWay = false;
    if (ends_ && !end) {
      end = Clock::now() + kPatience;
    }
    for (std::size_t i = 0; i < peers_.size(); ++i) {
      Peer& peer = *peers_[i];
      if ((!ends_ || peer.sent > 0) && !send(peer)) {
        return;
      }
      const bool waits = peer.answered < peer.asked;
      isUnderWay = isUnderWay || waits;
      watched[i] = {peer.connection.descriptor(), static_cast<short>(waits ? POLLIN : 0), 0};
      if (peer.sent > 0) {
        watched[i].events |= POLLOUT;
      }
    }
    if (!isUnderWay && ends_) {
      return;
    }
    if (end && Clock::now() > *end) {
      complain("the last replies did not come");
      return;
    }
    poll(watched.data(), watched.size(), static_cast<int>(kTick.count()));
    for (std::size_t i = 0; i < peers_.size(); ++i) {
      if ((watched[i].revents & ~POLLOUT) != 0 && !receive(*peers_[i])) {
        return;
      }
    }
  }
}

bool LookupLoad::send(Peer& peer) {
  while (peer.sent > 0 || (!ends_ && peer.asked - peer.answered < kUnderWay)) {
    const std::string& request =
        requests_[(peer.sent > 0 ? peer.asked - 1 : peer.asked) % requests_.size()];
    if (peer.sent == 0 && peer.asked == peer.answered) {
      peer.last = Clock::now();
    }
    const ssize_t sent = ::send(peer.connection.descriptor(), request.data() + peer.sent,
                                request.size() - peer.sent, MSG_NOSIGNAL);
    if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
      return true;
    }
    if (sent <= 0) {
      return goesOnClosed(peer, "a connection was closed while it was asking");
    }
    peer.asked += peer.sent == 0 ? 1 : 0;
    peer.sent = (peer.sent + static_cast<std::size_t>(sent)) % request.size();
  }
  return true;
}

bool LookupLoad::receive(Peer& peer) {
  char bytes[16384];
  const ssize_t count = recv(peer.connection.descriptor(), bytes, sizeof bytes, 0);
  if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) {
    return true;
  }
  if (count <= 0) {
    return goesOnClosed(peer, "a connection was closed that waited for a reply");
  }
  const Clock::time_point now = Clock::now();
  const auto silence = std::chrono::duration_cast<std::chrono::microseconds>(now - peer.last);
  peer.last = now;
  longestSilence_ = std::max<long long>(longestSilence_, silence.count());
  std::string_view rest(bytes, static_cast<std::size_t>(count));
  while (!rest.empty()) {
    const std::string& expected = replyBytes_[peer.answered % replyBytes_.size()];
    const std::size_t length = std::min(rest.size(), expected.size() - peer.came);
    if (peer.answered == peer.asked ||
        rest.substr(0, length) != expected.substr(peer.came, length)) {
      complain("a reply came that is not the next one");
      return false;
    }
    rest.remove_prefix(length);
    peer.came += length;
    if (peer.came == expected.size()) {
      peer.came = 0;
      ++peer.answered;
      ++replies_;
    }
  }
  return true;
}

bool LookupLoad::goesOnClosed(Peer& peer, const std::string& complaint) {
  if (whenClosed_ == WhenClosed::complains) {
    complain(complaint);
    return false;
  }
  peer.connection = server_.rawConnection();
  fcntl(peer.connection.descriptor(), F_SETFL, O_NONBLOCK);
  peer.asked = peer.answered;
  peer.sent = peer.came = 0;
  return true;
}

void LookupLoad::complain(const std::string& what) { complaint_ = what; }

}  // namespace sorvane::test
