#include "platform/host/NetlinkLinux.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <vector>

#include "platform/Descriptor.h"
#include "platform/WithoutInterruption.h"

namespace sorvane {
namespace {

constexpr int kAttempts = 10;
constexpr std::size_t kBufferBytes = 64 << 10;  // the kernel fills 32 KiB at most
constexpr timeval kAnswerLimit{5, 0};

enum class Answer { whole, interrupted, failed };

class NetlinkSocket {
 public:
  NetlinkSocket() : socket_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)) {
    setsockopt(socket_.number(), SOL_SOCKET, SO_RCVTIMEO, &kAnswerLimit, sizeof kAnswerLimit);
  }

  [[nodiscard]] bool ask(std::uint16_t type, unsigned char family) const {
    struct {
      nlmsghdr header;
      rtgenmsg body;
    } request{};
    request.header.nlmsg_len = NLMSG_LENGTH(sizeof request.body);
    request.header.nlmsg_type = type;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.body.rtgen_family = family;
    return send(socket_.number(), &request, request.header.nlmsg_len, 0) >= 0;
  }

  /// Appends the next datagram. Returns false if none came or it did not fit.
  [[nodiscard]] bool receive(std::vector<char>& bytes) const {
    const std::size_t before = bytes.size();
    bytes.resize(before + kBufferBytes);
    const ssize_t length = withoutInterruption(
        [&] { return recv(socket_.number(), bytes.data() + before, kBufferBytes, MSG_TRUNC); });
    if (length <= 0 || static_cast<std::size_t>(length) > kBufferBytes) {
      return false;
    }
    bytes.resize(before + NLMSG_ALIGN(static_cast<std::size_t>(length)));
    return true;
  }

 private:
  const Descriptor socket_;
};

const nlmsghdr& entryAt(const std::vector<char>& bytes, std::size_t at) {
  return *reinterpret_cast<const nlmsghdr*>(bytes.data() + at);
}

/// Reads the entries into `bytes` and their offsets into `entries`.
Answer readEntries(const NetlinkSocket& socket, std::vector<char>& bytes,
                   std::vector<std::size_t>& entries) {
  bool interrupted = false;
  for (std::size_t at = 0;;) {
    if (!socket.receive(bytes)) {
      return Answer::failed;
    }
    while (bytes.size() - at >= sizeof(nlmsghdr)) {
      const nlmsghdr& entry = entryAt(bytes, at);
      if (entry.nlmsg_len < sizeof(nlmsghdr) || entry.nlmsg_len > bytes.size() - at ||
          entry.nlmsg_type == NLMSG_ERROR) {
        return Answer::failed;
      }
      interrupted = interrupted || (entry.nlmsg_flags & NLM_F_DUMP_INTR) != 0;
      if (entry.nlmsg_type == NLMSG_DONE) {
        return interrupted ? Answer::interrupted : Answer::whole;
      }
      entries.push_back(at);
      at += NLMSG_ALIGN(entry.nlmsg_len);
    }
  }
}

}  // namespace

bool visitNetlinkEntries(std::uint16_t type, unsigned char family,
                         const std::function<void(const nlmsghdr&)>& visit) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const NetlinkSocket socket;
    std::vector<char> bytes;
    std::vector<std::size_t> entries;
    const Answer answer =
        socket.ask(type, family) ? readEntries(socket, bytes, entries) : Answer::failed;
    if (answer == Answer::failed) {
      return false;
    }
    if (answer == Answer::whole) {
      for (const std::size_t at : entries) {
        visit(entryAt(bytes, at));
      }
      return true;
    }
  }
  return false;
}

}  // namespace sorvane
