// A row of the table: the same load on several servers in turn, and their ratios.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "driver/Load.h"
#include "driver/Options.h"
#include "driver/Servers.h"

namespace sorvane::bench {

/// One measurement of one server.
struct Sample {
  double perSecond = 0.0;
  double cpuPerOperation = 0.0;  ///< nanoseconds of the server's threads
  double busy = 0.0;             ///< share of the time that the server was on a core
  Histogram latency;
};

/// A server and the load it gets.
struct Contender {
  std::string name;
  const Server* server;
  std::function<std::unique_ptr<Load>()> load;
};

/// What the name server should reach, against one of the others. The figures are medians of ratios
/// taken within a round.
struct Aim {
  enum class Figure { perSecond, cpu, p99 };
  Figure figure;
  std::string rival;
  double bound;  ///< least of `perSecond`, most of the others
};

struct Row {
  std::string title;
  std::vector<Contender> contenders;  ///< the ratios are taken to the first
  std::string subject;                ///< the contender that the aims are for
  std::vector<Aim> aims;
  bool serversUseAllCores = false;  ///< the generator then shares its core with them
};

/// A median with the least and the greatest value.
struct Spread {
  double median = 0.0;
  double least = 0.0;
  double greatest = 0.0;
  [[nodiscard]] static Spread of(std::vector<double> values);
};

/// What was measured of a row.
struct Comparison {
  Row row;
  std::vector<std::vector<Sample>> samples;  ///< by contender, then by round

  /// The ratio of `contender` to `other`, over all rounds. All zero when every divisor is zero.
  [[nodiscard]] Spread ratio(std::size_t contender, std::size_t other, Aim::Figure figure) const;
  [[nodiscard]] std::size_t indexOf(const std::string& name) const;
};

/// How many samples were kept, measured again, and kept although they were disturbed.
struct SampleCounts {
  int kept = 0;
  int repeated = 0;
  int keptDisturbed = 0;
};

/// Measures a row: A B A B, as many rounds as the options say.
[[nodiscard]] Comparison compare(const Row& row, const Options& options, SampleCounts& counts);

}  // namespace sorvane::bench
