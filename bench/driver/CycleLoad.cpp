#include <sys/socket.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "driver/Load.h"
#include "platform/wire/Frame.h"
#include "platform/wire/WireInteger.h"

namespace sorvane::bench {
namespace {

constexpr std::size_t kInputBytes = 64 * 1024;
/// Closed connections keep their address for a minute. So many addresses of this machine are used
/// in turn that none runs out of ports.
constexpr std::uint32_t kAddresses = 200;

}  // namespace

CycleLoad::CycleLoad(int port, const std::vector<Cycle>& cycles)
    : port_(port), cycles_(cycles), input_(kInputBytes) {
  connections_.resize(cycles_.size());
  for (std::size_t i = 0; i < cycles_.size(); ++i) {
    connections_[i].cycle = &cycles_[i];
  }
}

void CycleLoad::begin() {
  for (std::uint32_t index = 0; index < connections_.size(); ++index) {
    open(index, Clock::now());
  }
}

void CycleLoad::open(std::uint32_t index, Clock::time_point now) {
  static std::uint32_t turn = 0;
  Connection& connection = connections_[index];
  connection.began = now;
  connection.step = 0;
  connection.received = 0;
  connection.socket = connectTo(port_, kLoopback + ++turn % kAddresses);
  connection.socket.sendAll((*connection.cycle)[0].request);
  watch(connection.socket.descriptor(), index);
  ++pending_;
}

std::size_t CycleLoad::take(const Connection& connection) {
  const ssize_t got =
      ::recv(connection.socket.descriptor(), input_.data(), input_.size(), MSG_DONTWAIT);
  if (got <= 0) {
    throw std::runtime_error("the server closed a connection before it answered");
  }
  const Step& step = (*connection.cycle)[connection.step];
  if (connection.received < step.fixedReplyBytes) {
    const std::size_t compare =
        std::min(static_cast<std::size_t>(got), step.fixedReplyBytes - connection.received);
    if (std::memcmp(input_.data(), step.reply.data() + connection.received, compare) != 0) {
      throw std::runtime_error("the server sent something else than when it was first asked");
    }
  }
  return static_cast<std::size_t>(got);
}

void CycleLoad::handle(std::uint32_t index, Clock::time_point now, bool ending) {
  Connection& connection = connections_[index];
  const std::size_t got = take(connection);
  if (connection.received == 0) {
    if (got < kFrameHeaderBytes) {
      throw std::runtime_error("the server sent less than the header of a frame");
    }
    connection.due = kFrameHeaderBytes + loadBigEndian32(input_.data() + 4);
  }
  connection.received += got;
  if (connection.received < connection.due) {
    return;
  }
  connection.received = 0;
  if (++connection.step < connection.cycle->size()) {
    connection.socket.sendAll((*connection.cycle)[connection.step].request);
    return;
  }
  connection.socket.close();
  --pending_;
  ++result_.operations;
  result_.latency.add(static_cast<std::uint64_t>((now - connection.began).count()));
  if (!ending) {
    open(index, now);
  }
}

}  // namespace sorvane::bench
