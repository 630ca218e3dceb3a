#include "driver/Comparison.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <stdexcept>
#include <thread>

#include "driver/Disturbance.h"
#include "driver/ProcessFigures.h"

namespace sorvane::bench {
namespace {

constexpr std::chrono::milliseconds kSettle{2};  // until the server has closed and sleeps

struct Attempt {
  Sample sample;
  double disturbance = 0.0;
};

Attempt measure(const Contender& contender, bool sharedCore, const Options& options) {
  Attempt result;
  const std::vector<pid_t> processes = contender.server->processes();
  const std::unique_ptr<Load> load = contender.load();
  (void)load->run(options.sample / 10);  // warms caches up
  std::this_thread::sleep_for(kSettle);
  const Disturbance disturbance(processes);
  const std::uint64_t before = cpuTime(processes);
  const LoadResult loaded = load->run(options.sample);
  std::this_thread::sleep_for(kSettle);
  const auto cpu = static_cast<double>(cpuTime(processes) - before);
  result.disturbance = disturbance.share(loaded, sharedCore);
  const auto operations = static_cast<double>(loaded.operations);
  result.sample.perSecond = operations / loaded.seconds;
  result.sample.cpuPerOperation = cpu / operations;
  result.sample.busy = cpu * 1e-9 / loaded.seconds;
  result.sample.latency = loaded.latency;
  return result;
}

/// A sample that nothing disturbed, or else the least disturbed of all attempts.
Sample measureUndisturbed(const Contender& contender, bool sharedCore, const Options& options,
                          SampleCounts& counts) {
  std::optional<Attempt> best;
  for (int tries = 0; tries <= options.repeats; ++tries) {
    const Attempt next = measure(contender, sharedCore, options);
    if (!best || next.disturbance < best->disturbance) {
      best = next;
    }
    if (best->disturbance <= Disturbance::kTolerance) {
      break;
    }
    counts.repeated += tries < options.repeats ? 1 : 0;
  }
  ++counts.kept;
  counts.keptDisturbed += best->disturbance > Disturbance::kTolerance ? 1 : 0;
  return best->sample;
}

double figureOf(const Sample& sample, Aim::Figure figure) {
  switch (figure) {
    case Aim::Figure::perSecond:
      return sample.perSecond;
    case Aim::Figure::cpu:
      return sample.cpuPerOperation;
    case Aim::Figure::p99:
      return sample.latency.quantile(0.99);
  }
  return 0.0;
}

}  // namespace

Spread Spread::of(std::vector<double> values) {
  if (values.empty()) {
    return {};
  }
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  const double median =
      values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
  return {median, values.front(), values.back()};
}

Spread Comparison::ratio(std::size_t contender, std::size_t other, Aim::Figure figure) const {
  std::vector<double> ratios;
  for (std::size_t round = 0; round < samples[contender].size(); ++round) {
    const double divisor = figureOf(samples[other][round], figure);
    if (divisor > 0.0) {
      ratios.push_back(figureOf(samples[contender][round], figure) / divisor);
    }
  }
  return Spread::of(std::move(ratios));
}

std::size_t Comparison::indexOf(const std::string& name) const {
  for (std::size_t i = 0; i < row.contenders.size(); ++i) {
    if (row.contenders[i].name == name) {
      return i;
    }
  }
  return row.contenders.size();
}

Comparison compare(const Row& row, const Options& options, SampleCounts& counts) {
  Comparison result{row, {}};
  result.samples.resize(row.contenders.size());
  for (int round = 0; round < options.rounds; ++round) {
    for (std::size_t i = 0; i < row.contenders.size(); ++i) {
      result.samples[i].push_back(
          measureUndisturbed(row.contenders[i], row.serversUseAllCores, options, counts));
    }
  }
  return result;
}

}  // namespace sorvane::bench
