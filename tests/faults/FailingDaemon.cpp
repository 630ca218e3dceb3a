#include "faults/FailingDaemon.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <new>
#include <stdexcept>

#include "support/TestedBuild.h"

namespace sorvane::test {
namespace {

constexpr const char* kCallsAlone = SORVANE_BINARY_DIR "/tests/libfailing_calls.so";
constexpr const char* kCallsAndMemory = SORVANE_BINARY_DIR
    "/tests/libfailing_calls.so " SORVANE_BINARY_DIR "/tests/libfailing_memory.so";

}  // namespace

bool memoryCanFail() { return areTestedWithoutSanitizers(); }

FailingDaemon::FailingDaemon() {
  writeFile(file_, std::string(sizeof(FaultTable), '\0'));
  const int file = ::open(file_.c_str(), O_RDWR | O_CLOEXEC);
  void* const shared =
      ::mmap(nullptr, sizeof(FaultTable), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  ::close(file);
  if (shared == MAP_FAILED) {
    throw std::runtime_error("the table of faults cannot be shared");
  }
  table_ = new (shared) FaultTable{};
  // One serving thread, so that the calls of a session come in the same order each time, and a
  // rule of access, so that it asks for the address of each peer.
  server_.setting("Threads", "1").setting("AllowedNetworks", R"(("127.0.0.0/8"))");
}

FailingDaemon::~FailingDaemon() { ::munmap(table_, sizeof(FaultTable)); }

void FailingDaemon::start() {
  stopCounting();
  server_.launch({"-noexit"}, [this] {
    ::setenv("LD_PRELOAD", memoryCanFail() ? kCallsAndMemory : kCallsAlone, 1);
    ::setenv("ASAN_OPTIONS", "verify_asan_link_order=0", 1);
    ::setenv("FAULT_TABLE", file_.c_str(), 1);
  });
  if (!server_.answers() || !server_.hasTakenLock()) {
    throw std::runtime_error("the name server does not answer: " + server_.console());
  }
}

void FailingDaemon::countCalls() { countCallsAndFail({Call::count, 0, 0}); }

void FailingDaemon::countCallsAndFail(const Fault& fault) {
  for (auto& each : table_->calls) {
    each = 0;
  }
  table_->call = fault.call;
  table_->number = fault.number;
  table_->error = fault.error;
  table_->struck = false;
  table_->counts.store(true, std::memory_order_release);
}

void FailingDaemon::stopCounting() { table_->counts = false; }

std::uint64_t FailingDaemon::calls(Call call) const {
  return table_->calls[static_cast<std::size_t>(call)];
}

bool FailingDaemon::hasFailed() const { return table_->struck; }

}  // namespace sorvane::test
