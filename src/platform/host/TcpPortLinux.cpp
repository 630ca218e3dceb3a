#include <arpa/inet.h>
#include <netinet/in.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string_view>

#include "platform/IPNetwork.h"
#include "platform/TcpPort.h"

namespace sorvane {
namespace {

namespace fs = std::filesystem;

// States of a socket in /proc/net/tcp: see tcp_states.h of the kernel.
constexpr int kEstablished = 1;
constexpr int kPeerCloses = 8;
constexpr int kListens = 10;

/// A line of /proc/net/tcp or tcp6: see proc(5).
struct Socket {
  std::string address;  // as there: 32-bit words in the byte order of the machine, in hexadecimal
  int port = 0;
  int state = 0;
  uid_t user = 0;
  unsigned long long inode = 0;
};

template <typename Number>
Number numberOf(std::string_view digits, int base) {
  Number number{};
  std::from_chars(digits.data(), digits.data() + digits.size(), number, base);
  return number;
}

std::optional<Socket> readSocket(std::string_view line) {
  enum Column { number, local, remote, state, queues, timer, retries, user, timeout, inode, count };
  std::array<std::string_view, count> words;
  for (std::string_view& word : words) {
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    word = line.substr(0, line.find(' '));
    line.remove_prefix(word.size());
  }
  const std::size_t colon = words[local].find(':');
  if (words[inode].empty() || colon == std::string_view::npos) {
    return std::nullopt;
  }
  return Socket{std::string(words[local].substr(0, colon)),
                numberOf<int>(words[local].substr(colon + 1), 16), numberOf<int>(words[state], 16),
                numberOf<uid_t>(words[user], 10), numberOf<unsigned long long>(words[inode], 10)};
}

/// The address as people write it; empty if it is none.
std::string numericAddress(const std::string& words) {
  constexpr std::size_t kDigits = 8;
  unsigned char bytes[16] = {};
  if (words.size() != kDigits && words.size() != 4 * kDigits) {
    return {};
  }
  for (std::size_t at = 0; at < words.size(); at += kDigits) {
    const auto word = numberOf<std::uint32_t>(std::string_view(words).substr(at, kDigits), 16);
    std::memcpy(bytes + at / 2, &word, sizeof word);
  }
  char text[INET6_ADDRSTRLEN] = {};
  inet_ntop(words.size() == kDigits ? AF_INET : AF_INET6, bytes, text, sizeof text);
  return text;
}

TcpListener listenerOf(const Socket& socket) {
  TcpListener listener;
  listener.address = numericAddress(socket.address);
  const auto address = IPAddress::parse(listener.address);
  listener.isLoopback = address && address->isLoopback();
  listener.user = socket.user;
  return listener;
}

/// Looks through the open files of the processes for the sockets with these inodes.
void findProcesses(const std::map<std::string, std::size_t>& listenerOfLink,
                   std::vector<TcpListener>& listeners) {
  std::error_code error;
  for (fs::directory_iterator process("/proc", error), end; process != end;
       process.increment(error)) {
    const std::string name = process->path().filename().string();
    int number = 0;
    if (std::from_chars(name.data(), name.data() + name.size(), number).ec != std::errc()) {
      continue;
    }
    // Those of other users cannot be looked at, and processes end meanwhile.
    std::error_code hidden;
    for (fs::directory_iterator file(process->path() / "fd", hidden), last; file != last;
         file.increment(hidden)) {
      std::error_code closed;
      const auto found = listenerOfLink.find(fs::read_symlink(file->path(), closed).string());
      if (found != listenerOfLink.end() && !listeners[found->second].process) {
        listeners[found->second].process = number;
      }
    }
  }
}

}  // namespace

std::optional<TcpPortUse> useOfTcpPort(int port) {
  TcpPortUse use;
  std::map<std::string, std::size_t> listenerOfLink;
  bool told = false;
  for (const char* file : {"/proc/net/tcp", "/proc/net/tcp6"}) {
    std::ifstream lines(file);
    told = told || lines;
    for (std::string line; std::getline(lines, line);) {
      const auto socket = readSocket(line);
      if (!socket || socket->port != port) {
        continue;
      }
      if (socket->state == kListens) {
        listenerOfLink["socket:[" + std::to_string(socket->inode) + "]"] = use.listeners.size();
        use.listeners.push_back(listenerOf(*socket));
      } else if (socket->state == kEstablished || socket->state == kPeerCloses) {
        ++use.connections;
      }
    }
  }
  if (!told) {
    return std::nullopt;
  }
  if (!listenerOfLink.empty()) {
    findProcesses(listenerOfLink, use.listeners);
  }
  return use;
}

std::optional<EphemeralPorts> ephemeralPorts() {
  EphemeralPorts ports;
  std::ifstream range("/proc/sys/net/ipv4/ip_local_port_range");
  if (!(range >> ports.first >> ports.last)) {
    return std::nullopt;
  }
  std::ifstream("/proc/sys/net/ipv4/ip_local_reserved_ports") >> ports.reserved;
  return ports;
}

}  // namespace sorvane
