#include "faults/BadCable.h"

#include <fcntl.h>
#include <linux/if.h>
#include <linux/if_tun.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace sorvane::test {
namespace {

constexpr const char* kTunnels = "/dev/net/tun";
constexpr std::size_t kLongestPacket = 65536;

/// The end of a tunnel device "eth0" of that host.
Descriptor tunnelOf(const NetworkNamespace& host) {
  Descriptor tunnel;
  int error = 0;
  onNetworkOf(host, [&] {
    tunnel = Descriptor(open(kTunnels, O_RDWR | O_NONBLOCK | O_CLOEXEC));
    ifreq device{};
    std::strncpy(device.ifr_name, "eth0", sizeof device.ifr_name - 1);
    device.ifr_flags = IFF_TUN | IFF_NO_PI;
    error = ioctl(tunnel.number(), TUNSETIFF, &device) == 0 ? 0 : errno;
  });
  if (error != 0) {
    throw std::runtime_error(std::string("no tunnel device: ") + std::strerror(error));
  }
  return tunnel;
}

void switchOn(const NetworkNamespace& host, const std::string& address) {
  host.run("ip", {"address", "add", address, "dev", "eth0"});
  host.run("ip", {"link", "set", "eth0", "up"});
}

}  // namespace

std::string whyNoCable() {
  if (std::string why = whyNoOwnNetwork(); !why.empty()) {
    return why;
  }
  const Descriptor tunnels(open(kTunnels, O_RDWR | O_CLOEXEC));
  return tunnels.isOpen() ? "" : std::string("no tunnel devices: ") + std::strerror(errno);
}

BadCable::BadCable(const NetworkNamespace& one, const std::string& addressOfOne,
                   const NetworkNamespace& other, const std::string& addressOfOther,
                   const CableFaults& faults)
    : faults_(faults), one_(tunnelOf(one)), other_(tunnelOf(other)), stop_(openPipe()) {
  switchOn(one, addressOfOne);
  switchOn(other, addressOfOther);
  thread_ = std::thread([this] { carry(); });
}

BadCable::~BadCable() {
  stop_.writing.close();
  thread_.join();
}

void BadCable::carry() {
  for (;;) {
    std::array<pollfd, 3> ready{{{one_.number(), POLLIN, 0},
                                 {other_.number(), POLLIN, 0},
                                 {stop_.reading.number(), POLLIN, 0}}};
    poll(ready.data(), ready.size(), millisecondsToNext());
    if (ready[2].revents != 0) {
      return;
    }
    take(one_.number(), other_.number());
    take(other_.number(), one_.number());
    deliverDue();
  }
}

void BadCable::take(int from, int to) {
  std::uniform_real_distribution<double> fate(0.0, 1.0);
  std::array<char, kLongestPacket> bytes;
  ssize_t length = 0;
  while ((length = read(from, bytes.data(), bytes.size())) > 0) {
    ++counts_.carried;
    if (isCut_ || fate(random_) < faults_.lost) {
      ++counts_.lost;
      continue;
    }
    const std::string packet(bytes.data(), static_cast<std::size_t>(length));
    const bool isRepeated = fate(random_) < faults_.repeated;
    counts_.repeated += isRepeated ? 1 : 0;
    for (int copies = isRepeated ? 2 : 1; copies > 0; --copies) {
      const auto delay =
          std::chrono::duration_cast<Clock::duration>(faults_.longestDelay * fate(random_));
      underWay_.push({Clock::now() + delay, ++numbers_, to, packet});
    }
  }
}

void BadCable::deliverDue() {
  while (!underWay_.empty() && underWay_.top().due <= Clock::now()) {
    const Packet& packet = underWay_.top();
    std::uint64_t& last = lastOut_[packet.to == one_.number() ? 0 : 1];
    counts_.overtaken += packet.number < last ? 1 : 0;
    last = std::max(last, packet.number);
    // A device that takes no more loses the packet, as a device does.
    if (write(packet.to, packet.bytes.data(), packet.bytes.size()) < 0) {
      ++counts_.lost;
    }
    underWay_.pop();
  }
}

int BadCable::millisecondsToNext() const {
  if (underWay_.empty()) {
    return -1;
  }
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(underWay_.top().due - Clock::now());
  return static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
}

}  // namespace sorvane::test
