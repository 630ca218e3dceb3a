// A cable between two hosts that loses, delays, repeats and reorders packets.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <queue>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "integration/NetworkNamespace.h"
#include "platform/Descriptor.h"

namespace sorvane::test {

/// What a cable does to packets. Each packet draws its own fate.
struct CableFaults {
  double lost = 0;                            ///< part of the packets, from 0 to 1
  double repeated = 0;                        ///< part of the packets
  std::chrono::milliseconds longestDelay{0};  ///< from none to this: a packet may pass another one
};

/// Two tunnel devices, each called "eth0" in its host, and a thread that carries the packets from
/// one to the other. It needs no queue discipline of the kernel, which has not the same everywhere.
class BadCable {
 public:
  /// `addressOfOne` and `addressOfOther` as "192.0.2.1/24". An exception if there are no tunnel
  /// devices: see `whyNoCable`.
  BadCable(const NetworkNamespace& one, const std::string& addressOfOne,
           const NetworkNamespace& other, const std::string& addressOfOther,
           const CableFaults& faults);
  ~BadCable();
  BadCable(const BadCable&) = delete;
  BadCable& operator=(const BadCable&) = delete;

  /// From now on no packet passes, or they pass as before.
  void cut() { isCut_ = true; }
  void mend() { isCut_ = false; }

  /// How many packets were carried, and what became of them.
  struct Counts {
    std::atomic<int> carried{0};
    std::atomic<int> lost{0};
    std::atomic<int> repeated{0};
    std::atomic<int> overtaken{0};  ///< came out behind one that went in later
  };
  [[nodiscard]] const Counts& counts() const { return counts_; }

 private:
  using Clock = std::chrono::steady_clock;
  struct Packet {
    Clock::time_point due;
    std::uint64_t number;
    int to;  // the device that it goes to
    std::string bytes;
    bool operator>(const Packet& other) const { return due > other.due; }
  };

  void carry();
  void take(int from, int to);
  void deliverDue();
  [[nodiscard]] int millisecondsToNext() const;

  const CableFaults faults_;
  Descriptor one_;
  Descriptor other_;
  PipeEnds stop_;
  std::atomic<bool> isCut_{false};
  Counts counts_;
  // Of the thread alone:
  std::mt19937 random_{20221};
  std::priority_queue<Packet, std::vector<Packet>, std::greater<>> underWay_;
  std::uint64_t numbers_ = 0;
  std::uint64_t lastOut_[2] = {0, 0};  // by device
  std::thread thread_;
};

/// Why there can be no such cable here, or "".
[[nodiscard]] std::string whyNoCable();

}  // namespace sorvane::test
