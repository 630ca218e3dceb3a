#include "driver/Table.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

namespace sorvane::bench {
namespace {

std::string spread(const Spread& ratio) {
  return fmt::format("{:.2f} ({:.2f}..{:.2f})", ratio.median, ratio.least, ratio.greatest);
}

template <typename Figure>
double medianOf(const std::vector<Sample>& samples, Figure&& figure) {
  std::vector<double> values;
  std::transform(samples.begin(), samples.end(), std::back_inserter(values), figure);
  return Spread::of(std::move(values)).median;
}

void printContender(const Comparison& comparison, std::size_t index) {
  const std::vector<Sample>& samples = comparison.samples[index];
  Histogram latency;
  for (const Sample& sample : samples) {
    latency.add(sample.latency);
  }
  fmt::print("  {:<21}{:>10}  {:<18}{:>8.1f}{:>8.1f}{:>8.1f}{:>8}  {:<18}{:>4.0f}%\n",
             comparison.row.contenders[index].name,
             grouped(medianOf(samples, [](const Sample& sample) { return sample.perSecond; })),
             spread(comparison.ratio(index, 0, Aim::Figure::perSecond)), latency.quantile(0.5),
             latency.quantile(0.99), latency.quantile(0.999),
             grouped(medianOf(samples, [](const Sample& s) { return s.cpuPerOperation; })),
             spread(comparison.ratio(index, 0, Aim::Figure::cpu)),
             100 * medianOf(samples, [](const Sample& sample) { return sample.busy; }));
}

const char* nameOf(Aim::Figure figure) {
  switch (figure) {
    case Aim::Figure::perSecond:
      return "operations a second";
    case Aim::Figure::cpu:
      return "server CPU for each operation";
    case Aim::Figure::p99:
      return "p99";
  }
  return "";
}

void printAimOf(const Comparison& comparison, const Aim& aim) {
  const std::size_t subject = comparison.indexOf(comparison.row.subject);
  const std::size_t rival = comparison.indexOf(aim.rival);
  if (rival == comparison.row.contenders.size()) {
    return;  // not installed
  }
  const bool atLeast = aim.figure == Aim::Figure::perSecond;
  const Spread ratio = comparison.ratio(subject, rival, aim.figure);
  printAim(fmt::format("{}, at {} {:.2f} of {}", nameOf(aim.figure), atLeast ? "least" : "most",
                       aim.bound, aim.rival),
           spread(ratio), atLeast ? ratio.median >= aim.bound : ratio.median <= aim.bound);
}

}  // namespace

std::string grouped(double value) {
  std::string digits = fmt::format("{:.0f}", value);
  for (int at = static_cast<int>(digits.size()) - 3; at > 0; at -= 3) {
    digits.insert(static_cast<std::size_t>(at), ",");
  }
  return digits;
}

void printColumns() {
  fmt::print("  {:<21}{:>10}  {:<18}{:>8}{:>8}{:>8}{:>8}  {:<18}{:>5}\n", "", "ops/s",
             "of the first", "p50 us", "p99 us", "p999 us", "CPU ns", "of the first", "busy");
}

void print(const Comparison& comparison) {
  fmt::print("\n{}\n", comparison.row.title);
  for (std::size_t i = 0; i < comparison.row.contenders.size(); ++i) {
    printContender(comparison, i);
  }
  for (const Aim& aim : comparison.row.aims) {
    printAimOf(comparison, aim);
  }
  std::fflush(stdout);
}

void printAim(const std::string& what, const std::string& measured, bool met) {
  fmt::print("    aim: {}: {}, {}\n", what, measured, met ? "met" : "MISSED");
}

}  // namespace sorvane::bench
