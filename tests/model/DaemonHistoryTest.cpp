// The real name server and several clients at the same time: what they saw has an order that the
// model explains, also while the server is stopped, and while connections are cut.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>

#include <atomic>
#include <barrier>
#include <iostream>
#include <memory>
#include <sstream>
#include <thread>

#include "integration/Client.h"
#include "integration/Daemon.h"
#include "integration/DaemonProcess.h"
#include "model/History.h"
#include "support/WaitUntil.h"

namespace sorvane::model {
namespace {

using test::waitUntil;

#ifdef SORVANE_PLAIN
constexpr std::uint64_t kRounds = 40;
#else
constexpr std::uint64_t kRounds = 12;
#endif
constexpr int kPlayers = 4;
constexpr int kTurns = 3;         // of a player in a round
constexpr int kMostRequests = 3;  // that a player sends in a turn
constexpr int kMostWaits = 3;     // of a follower in a round, before the others have finished
constexpr std::size_t kShownSituations = 3;
constexpr std::size_t kManySituations = 2;

Entries request(const Texts& texts) {
  Entries entries;
  for (const auto& [key, text] : texts) {
    entries.push_back({key, text + '\0', text});
  }
  return entries;
}

/// How connections end. One does in a round at most: each multiplies the orders to be tried.
enum class Ending : std::uint8_t { seldom, cut, either };

/// The turn in which a player ends its connection and makes another one.
struct End {
  int turn = -1;  ///< -1: in none
  bool isCut = false;
};

/// What the players of a round tell of themselves meanwhile.
struct Board {
  std::atomic<int> waiting = 0;  ///< for a reply
  std::atomic<int> finished = 0;
  std::atomic<int> replies = 0;
  std::atomic<bool> isOver = false;         ///< the players have finished
  std::atomic<int> followersAtTheLast = 0;  ///< who wait for one more change and no further one
};

/// A client that writes down what it does. One thread at a time.
class Player {
 public:
  Player(const test::Daemon& server, std::atomic<int>& connections)
      : server_(server), connections_(connections) {}

  /// When this returns, the server counts the connection among its own.
  void connect(Board& board) {
    connection_ = std::make_unique<test::RawConnection>(server_.rawConnection());
    strands_.push_back({.connection = connections_++});
    ask({request({{"ping", ""}})}, 1, board);
  }

  void play(const RequestMaker& maker, Random random, End end, Board& board) {
    for (int turn = 0; turn < kTurns; ++turn) {
      const bool isCut = end.isCut && turn == end.turn;
      std::vector<Entries> requests;
      for (std::uint64_t i = random.below(kMostRequests) + 1; i > 0; --i) {
        requests.push_back(maker.make(random));
      }
      const std::size_t replies = isCut ? random.below(requests.size()) : requests.size();
      ask(requests, replies, board);
      if (turn == end.turn) {
        close(isCut);
        connect(board);
      }
    }
    ++board.finished;
  }

  /// Waits for one change after the other, at last for one after the players have finished.
  void follow(Board& board) {
    const Entries waiting = request({{"action", "awaitPortChanges"}, {"timeout", "300"}});
    for (int i = 0; i < kMostWaits && !board.isOver; ++i) {
      ask({waiting}, 1, board);
    }
    board.isOver.wait(false);
    ++board.followersAtTheLast;
    ask({waiting}, 1, board);
  }

  /// Sends the requests at once, and takes that many replies.
  void ask(const std::vector<Entries>& requests, std::size_t replies, Board& board) {
    std::vector<Operation>& operations = strands_.back().operations;
    const std::size_t first = operations.size();
    std::string bytes;
    for (const Entries& each : requests) {
      bytes += test::frameOfBody(bodyOf(each));
    }
    const Moment sent = presentMoment();
    for (const Entries& each : requests) {
      operations.push_back({.request = each, .sent = sent});
    }
    EXPECT_TRUE(connection_->send(bytes));
    ++board.waiting;
    for (std::size_t i = first; i < first + replies; ++i) {
      const auto reply = connection_->receiveFrame();
      if (!reply) {
        ADD_FAILURE() << "the server has closed connection " << strands_.back().connection;
        break;
      }
      operations[i].replied = presentMoment();
      operations[i].kind = reply->kind;
      operations[i].body = reply->body;
      ++board.replies;
    }
    --board.waiting;
  }

  /// What was written down, which is then forgotten.
  [[nodiscard]] History takeHistory() {
    History history = std::exchange(strands_, {});
    strands_.push_back({.connection = history.back().connection});
    return history;
  }

 private:
  void close(bool isCut) {
    const linger reset{1, 0};
    if (isCut) {
      setsockopt(connection_->descriptor(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    }
    strands_.back().closed = presentMoment();
    connection_->close();
  }

  const test::Daemon& server_;
  std::atomic<int>& connections_;
  std::unique_ptr<test::RawConnection> connection_;
  History strands_;
};

class DaemonHistory : public testing::Test {
 protected:
  void SetUp() override {
    std::cout << "SORVANE_MODEL_SEED=" << seed_ << std::endl;
    server_.setting("Threads", "4");
    server_.launch();
    // No connection came before this one, the end of which would be a change.
    tool_.emplace(test::firstClientOf(server_));
    ++connections_;
    // A request that raises: what it costs at the first time is there from now on.
    ASSERT_EQ(tool_->asks(test::Texts{{"acceptPort", ""}}), test::kNil);
    sockets_ = test::DaemonProcess(server_.process()).openSockets() - 1;
    const List facts = elementsOf(tool_->resultOf("hostInfo"));
    ASSERT_EQ(facts.size(), 5U);
    RegistryModel model({.name = facts[0],
                         .address = facts[2],
                         .ethernetAddress = facts[1],
                         .version = facts[3],
                         .system = facts[4],
                         .basePort = server_.basePort()},
                        0.0);
    model.connects(0);
    (void)model.asks(0, {{"action", "hostInfo"}}, 0.0);
    situations_ = {{.registry = model}};
    ethernetAddress_ = facts[1];
    Board board;
    for (int i = 0; i < kPlayers; ++i) {
      players_.push_back(std::make_unique<Player>(server_, connections_));
      players_.back()->connect(board);
    }
  }

  /// Lets all players play at once while `meanwhile` runs. The last `followers` of them follow the
  /// changes instead. Then explains what they saw.
  template <typename Meanwhile>
  void playsRound(std::uint64_t number, Ending ending, Meanwhile&& meanwhile, int followers = 0) {
    const int active = kPlayers - followers;
    Random random(seed_ + number);
    Vocabulary vocabulary{
        .names = {"db1", "db2"}, .ethernetAddress = ethernetAddress_, .oddPercent = 5};
    if (random.percent(30)) {
      vocabulary.names.push_back("sorvexec");
    }
    const RequestMaker maker(vocabulary, random);
    const int closer = static_cast<int>(random.below(static_cast<std::uint64_t>(active)));
    End end{.turn = static_cast<int>(random.below(kTurns)),
            .isCut = ending == Ending::cut || (ending == Ending::either && random.percent(50))};
    if (ending == Ending::seldom && random.percent(70)) {
      end.turn = -1;
    }
    Board board;
    std::barrier start(kPlayers);
    std::vector<std::thread> threads;
    for (int i = 0; i < kPlayers; ++i) {
      threads.emplace_back(
          [&, i, own = Random(seed_ + number * kPlayers + static_cast<std::uint64_t>(i))] {
            start.arrive_and_wait();
            Player& player = *players_[static_cast<std::size_t>(i)];
            if (i < active) {
              player.play(maker, own, i == closer ? end : End(), board);
            } else {
              player.follow(board);
            }
          });
    }
    meanwhile(board);
    for (int i = 0; i < active; ++i) {
      threads[static_cast<std::size_t>(i)].join();
    }
    if (followers > 0) {
      endsFollowing(followers, board);
    }
    for (int i = active; i < kPlayers; ++i) {
      threads[static_cast<std::size_t>(i)].join();
    }
    takeHistories();
    // The server closes a socket when it has ended the connection.
    ASSERT_TRUE(waitUntil([&] {
      return test::DaemonProcess(server_.process()).openSockets() == sockets_ + 1 + kPlayers;
    })) << server_.console();
    explains(number);
    if (situations_.size() > kManySituations) {
      const History played = history_;
      asksForSituation(board);
      explains(number);
      history_ = played;
    }
  }
  void playsRound(std::uint64_t number, Ending ending) {
    playsRound(number, ending, [](const Board& /*board*/) {});
  }

  [[nodiscard]] std::uint64_t rounds(std::uint64_t otherwise) const {
    return numberFromEnvironment("SORVANE_MODEL_ROUNDS", otherwise);
  }

  const std::uint64_t seed_ = seedOfThisRun();
  test::Daemon server_;
  History history_;  // of the last round

 private:
  /// Each follower waits for a change at most twice from now on. If it misses one, it gets no
  /// reply.
  void endsFollowing(int followers, Board& board) {
    const auto change = [&] {
      players_.front()->ask({request({{"action", "needsRefresh"}})}, 1, board);
    };
    board.isOver = true;
    board.isOver.notify_all();
    change();
    ASSERT_TRUE(waitUntil([&] { return board.followersAtTheLast == followers; }));
    change();
  }

  void takeHistories() {
    history_.clear();
    for (const auto& player : players_) {
      const History seen = player->takeHistory();
      history_.insert(history_.end(), seen.begin(), seen.end());
    }
  }

  /// One request after the other, whose replies tell the situations apart.
  void asksForSituation(Board& board) {
    std::vector<Entries> requests;
    for (const char* name : {"db1", "db2", "sorvexec"}) {
      requests.push_back(request({{"findPort", name}, {"portHost", "here"}}));
    }
    for (const char* action : {"databaseStates", "changeTimestamp"}) {
      requests.push_back(request({{"action", action}}));
    }
    players_.front()->ask(requests, requests.size(), board);
    for (const auto& player : players_) {
      player->ask({request({{"action", "didPortsChange"}})}, 1, board);
    }
    takeHistories();
  }

  void explains(std::uint64_t number) {
    const Explanation explanation = explained(situations_, history_);
    if (explanation.after.empty()) {
      std::ostringstream text;
      text << "SORVANE_MODEL_SEED=" << seed_ << ", round " << number
           << ": no order of these requests gives these replies.\n"
           << shown(history_) << "The longest order that was found has so many of them:\n";
      for (std::size_t i = 0; i < history_.size(); ++i) {
        text << "  connection " << history_[i].connection << ": "
             << std::min(explanation.furthest[i], history_[i].operations.size()) << " of "
             << history_[i].operations.size() << "\n";
      }
      text << "There, the model replies next\n"
           << explanation.next << "Before, the server held one of " << situations_.size()
           << " situations:\n";
      for (std::size_t i = 0; i < std::min(situations_.size(), kShownSituations); ++i) {
        text << shown(situations_[i].registry.state());
      }
      FAIL() << text.str();
    }
    situations_ = explanation.after;
  }

  std::optional<test::Client> tool_;
  std::atomic<int> connections_ = 0;  // so many were made
  int sockets_ = 0;                   // of the server, besides its connections
  std::string ethernetAddress_;
  std::vector<std::unique_ptr<Player>> players_;
  std::vector<Situation> situations_;
};

TEST_F(DaemonHistory, OfManyClientsHasAnOrder) {
  for (std::uint64_t round = 0; round < rounds(2 * kRounds) && !HasFailure(); ++round) {
    playsRound(round, Ending::seldom);
  }
}

TEST_F(DaemonHistory, OfFollowersWhoWaitForChangesHasAnOrder) {
  constexpr int kFollowers = 2;
  for (std::uint64_t round = 0; round < rounds(kRounds) && !HasFailure(); ++round) {
    playsRound(
        round, Ending::seldom, [](const Board& /*board*/) {}, kFollowers);
  }
}

TEST_F(DaemonHistory, OfConnectionsThatAreCutHasAnOrder) {
  for (std::uint64_t round = 0; round < rounds(kRounds) && !HasFailure(); ++round) {
    playsRound(round, Ending::cut);
  }
}

TEST_F(DaemonHistory, OfAServerThatIsStoppedAndContinuedHasAnOrder) {
  std::uint64_t waited =
      0;  // requests that were sent before the server went on, and replied to after
  for (std::uint64_t round = 0; round < rounds(kRounds / 2) && !HasFailure(); ++round) {
    std::vector<Moment> continued;
    playsRound(round, Ending::either, [&](const Board& board) {
      const pid_t process = server_.process();
      while (board.finished < kPlayers) {
        const int before = board.replies;
        ASSERT_EQ(kill(process, SIGSTOP), 0);
        EXPECT_TRUE(waitUntil([&] { return test::DaemonProcess(process).isStopped(); }));
        EXPECT_TRUE(waitUntil([&] { return board.waiting + board.finished == kPlayers; }));
        continued.push_back(presentMoment());
        ASSERT_EQ(kill(process, SIGCONT), 0);
        EXPECT_TRUE(
            waitUntil([&] { return board.replies > before || board.finished == kPlayers; }));
      }
    });
    for (const Strand& strand : history_) {
      for (const Operation& operation : strand.operations) {
        for (const Moment& moment : continued) {
          waited +=
              operation.sent.steady < moment.steady && moment.steady < operation.replied.steady;
        }
      }
    }
  }
  EXPECT_GT(waited, 0U);
}

}  // namespace
}  // namespace sorvane::model
