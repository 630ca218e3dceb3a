// The registry's commands and the model of them, side by side, in this process.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "model/Follower.h"
#include "model/RegistryModel.h"
#include "model/RequestMaker.h"
#include "registry/CommandServer.h"
#include "registry/ConnectionEnd.h"
#include "support/InProcess.h"

namespace sorvane::model {

/// One thing that happens.
struct Step {
  enum class Kind : std::uint8_t { connects, asks, closes, follows, goesOn, dies };
  Kind kind = Kind::asks;
  int connection = 0;             ///< or the number of a follower
  bool isFromThisMachine = true;  ///< of a connection that is made
  double later = 0.0;             ///< seconds since the step before
  Entries request = {};
  std::size_t limit = 1;  ///< names in the reply to a follower, at most
  /// The connections that are at work when the process dies, besides those whose request is held.
  std::vector<int> atWork = {};
};

/// Those who ask what has changed have numbers below this.
inline constexpr int kFollowers = 3;

[[nodiscard]] std::string shown(const Step& step);

/// The server that a sequence begins with.
struct Setting {
  Host host = {};
  bool isVerbose = false;
  std::size_t remembersGone = 65536;  ///< names, at most
  /// The journal's base is written anew after so many bytes at least. Nothing: there is no journal,
  /// and the process never dies.
  std::optional<std::size_t> journalBytes = {};
};

/// Carries out steps on both. A step that makes no sense, such as a request of a connection that
/// was never made, does nothing: sequences can be shortened.
class Trial {
 public:
  enum class Compared : std::uint8_t {
    reply,  ///< the reply, the sender's record and what is one number
    all,    ///< the whole state, too
  };

  /// `names` are all that requests can register. The clock must be `test::MovedClock`.
  Trial(const Setting& setting, std::set<std::string> names);
  ~Trial();

  /// Returns what differs afterwards, in words; the empty text when nothing does.
  [[nodiscard]] std::string carriesOut(const Step& step, Compared compared);

 private:
  class Connection;
  class Server;

  [[nodiscard]] std::unique_ptr<Server> madeServer(std::shared_ptr<JournalMemory> memory) const;
  /// Another server goes on with what this one keeps.
  [[nodiscard]] std::string goesOn();
  /// Another server goes on with what the journal of this one tells.
  [[nodiscard]] std::string dies(const std::vector<int>& drawnAtWork);
  /// Gives the records under the names the numbers that they had in the server before.
  [[nodiscard]] std::string recognisesNames(const Server& before,
                                            const std::map<const PortDescriptor*, int>& numbers);
  [[nodiscard]] std::string beginsJournal();
  /// Returns the lowest descriptor that no connection has.
  [[nodiscard]] int freeDescriptor() const;
  [[nodiscard]] std::string asks(Connection& sender, const Step& step);
  [[nodiscard]] std::string follows(Follower& follower, std::size_t limit);
  [[nodiscard]] Reply realReply(Connection& sender, const Message& request);
  [[nodiscard]] Reply realHeldReply(Connection& sender, bool isLastTime);
  /// Returns the reply that `deliver` returns and has written.
  template <typename Deliver>
  [[nodiscard]] Reply realReplyOf(Connection& sender, Deliver deliver);
  /// Asks for the reply to the request of the connection that is held.
  [[nodiscard]] std::string asksHeld(int connection, bool isLastTime);
  [[nodiscard]] std::string asksAllHeld();
  [[nodiscard]] std::string differenceOfNumbers();
  [[nodiscard]] std::string differenceOfAll();
  [[nodiscard]] State realState();

  const Setting setting_;
  const std::set<std::string> names_;
  const bool forgetsGone_;
  std::unique_ptr<Server> server_;
  std::unique_ptr<RegistryModel> model_;
  std::map<int, std::unique_ptr<Connection>> open_;
  std::array<Follower, kFollowers> followers_;
  std::set<int> holding_;                                // connections whose request is held
  std::map<const PortDescriptor*, int> numbers_;         // of the connections, by their records
  std::map<int, std::weak_ptr<PortDescriptor>> closed_;  // records of closed connections
};

}  // namespace sorvane::model
