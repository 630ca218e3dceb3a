// What the journal of the registry adds to a change.
#include "registry/Journal.h"

#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "registry/Registry.h"
#include "registry/RetiredTexts.h"

namespace {

using sorvane::PortDescriptor;

constexpr int kFirstDescriptor = 3;

double processorMicroseconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

/// As many ports, each of a connection of its own.
class Ports {
 public:
  Ports(std::size_t count, bool hasJournal) : memory_(kFirstDescriptor + count), journal_(memory_) {
    if (hasJournal && !registry_.beginJournal(journal_)) {
      throw std::bad_alloc();
    }
    for (std::size_t number = 0; number < count; ++number) {
      names_.push_back("database" + std::to_string(number));
      keys_.push_back(names_.back() + "@host.example.org");
      records_.push_back(std::make_shared<PortDescriptor>());
      registers(number);
    }
  }

  void registers(std::size_t number) {
    const PortDescriptor::Registration registration{keys_[number],      names_[number], "10.1.2.3",
                                                    "host.example.org", "5001",         "database"};
    sorvane::PortMap::NamedRegistration prepared(registration);
    registry_.with([&](sorvane::RegistryState& state) {
      return state.map.enterWith(std::move(prepared), records_[number],
                                 kFirstDescriptor + static_cast<int>(number));
    });
    sorvane::releaseRetiredTexts();
  }
  void registersAny() { registers(random_() % records_.size()); }

 private:
  sorvane::JournalMemory memory_;
  sorvane::Journal journal_;
  sorvane::Registry registry_;
  std::vector<std::string> names_;
  std::vector<std::string> keys_;
  std::vector<std::shared_ptr<PortDescriptor>> records_;
  std::minstd_rand random_;
};

/// One of the ports is registered again, drawn at random.
void registerPort(benchmark::State& state, bool hasJournal) {
  Ports ports(static_cast<std::size_t>(state.range(0)), hasJournal);
  for (auto _ : state) {
    ports.registersAny();
  }
}

void BM_RegisterPort(benchmark::State& state) { registerPort(state, false); }
BENCHMARK(BM_RegisterPort)->Arg(1000)->Arg(10000)->Arg(100000);

void BM_RegisterPortWithJournal(benchmark::State& state) { registerPort(state, true); }
BENCHMARK(BM_RegisterPortWithJournal)->Arg(1000)->Arg(10000)->Arg(100000);

/// The longest of 500,000 registrations, in processor time of the thread that makes them.
void BM_LongestRegistrationWithJournal(benchmark::State& state) {
  constexpr int kRegistrations = 500000;
  Ports ports(static_cast<std::size_t>(state.range(0)), true);
  double longest = 0;
  for (auto _ : state) {
    for (int count = 0; count < kRegistrations; ++count) {
      const double before = processorMicroseconds();
      ports.registersAny();
      longest = std::max(longest, processorMicroseconds() - before);
    }
  }
  state.counters["longest_us"] = longest;
}
BENCHMARK(BM_LongestRegistrationWithJournal)->Arg(1000)->Arg(10000)->Arg(100000)->Iterations(1);

}  // namespace
