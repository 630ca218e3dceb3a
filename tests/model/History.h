// What several clients saw of one name server at the same time, and whether the model can tell a
// story of it: an order of the requests in which each takes effect at one moment between its
// sending and its reply, and in which the model gives every reply that came.
//
// The search tries all orders that the times allow, one request after the other. It remembers each
// situation that it has tried: how far each connection is, and what the registry then holds.
#pragma once

#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "model/RegistryModel.h"
#include "model/RequestMaker.h"

namespace sorvane::model {

inline constexpr double kNever = std::numeric_limits<double>::infinity();

/// A moment: by a clock that never goes back, and by the clock of the host, in seconds.
struct Moment {
  double steady = 0.0;
  double ofHost = 0.0;
};

[[nodiscard]] Moment presentMoment();

/// A request and what came back.
struct Operation {
  Entries request = {};
  Moment sent = {};
  Moment replied = {kNever, kNever};  ///< when the reply was there; never: the connection was cut
  int kind = 0;                       ///< of the reply's frame
  std::string body = {};              ///< of the reply's frame
};

/// What one connection saw, in its order. The server carries out its requests in that order.
struct Strand {
  int connection = 0;
  std::vector<Operation> operations = {};
  std::optional<Moment> closed = {};  ///< when it began to close, if it did
};

using History = std::vector<Strand>;

[[nodiscard]] std::string shown(const History& history);

/// What the name server may hold at a moment when nothing is under way.
struct Situation {
  RegistryModel registry;
  double notBefore = 0.0;  ///< the last change was not before that, seconds of the host
  std::optional<std::string> time = {};  ///< the time of the last change, once a reply has told it

  auto operator<=>(const Situation&) const = default;
};

struct Explanation {
  /// What the server may hold afterwards. None: no order of the requests gives these replies.
  std::vector<Situation> after;
  /// How far the longest story went: the number of explained operations of each strand.
  std::vector<std::size_t> furthest;
  /// What the model replies to the next operation of each strand then, and what it holds.
  std::string next;
  std::size_t tried = 0;  ///< situations
};

/// Explains a history that began in one of these situations. When it ends, every reply has come
/// that will come, and the server has ended every connection that was closed.
[[nodiscard]] Explanation explained(const std::vector<Situation>& before, const History& history);

}  // namespace sorvane::model
