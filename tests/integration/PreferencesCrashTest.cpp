// A name server that is killed again and again in the middle of writing its preferences.
#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "integration/Preferences.h"

namespace sorvane::test {
namespace {

using Clock = std::chrono::steady_clock;
using Dictionary = PropertyList::Dictionary;

/// Sets one entry after the other without a pause, and remembers what the file may hold.
class Writer {
 public:
  /// Goes on until the server is gone.
  void write(NetConnection& server) {
    for (;;) {
      const std::string number = std::to_string(++number_);
      const std::string entry = "user" + std::to_string(number_ % 7);
      const std::string databases = number + std::string(3000, 'x');
      answered_ = sent_;
      sent_.insert_or_assign(entry, Dictionary{{"databases", databases}});
      const Clock::time_point begin = Clock::now();
      if (!server.sendDictionary(PreferenceClient::setting(entry, {{"databases", databases}}))) {
        answersOfThisRun_ = kEnded;
        answersOfThisRun_.notify_one();
        return;
      }
      lastDuration_ = Clock::now() - begin;
      ++answers_;
      ++answersOfThisRun_;
      answersOfThisRun_.notify_one();
    }
  }

  void beginRun() { answersOfThisRun_ = 0; }

  /// Waits for that many answers of the current run, and then for a part of the time that the last
  /// one took.
  void waitFor(int answers, double part) const {
    for (int seen = answersOfThisRun_; seen < answers; seen = answersOfThisRun_) {
      answersOfThisRun_.wait(seen);
    }
    std::this_thread::sleep_for(lastDuration_.load() * part);
  }

  /// True when the stored preferences are those of the last answer or of the request under way;
  /// the writer goes on from there.
  [[nodiscard]] bool goesOnFrom(const PropertyList& stored) {
    const bool known = stored == PropertyList(sent_) || stored == PropertyList(answered_);
    sent_ = *stored.dictionary();
    return known;
  }

  [[nodiscard]] int answers() const { return answers_; }

 private:
  static constexpr int kEnded = 1 << 30;  // no answer is to be waited for any more

  Dictionary answered_;  // once the request under way has failed
  Dictionary sent_;
  int number_ = 0;
  int answers_ = 0;
  std::atomic<int> answersOfThisRun_ = 0;
  std::atomic<Clock::duration> lastDuration_ = Clock::duration::zero();
};

TEST(PreferencesOfAServerThatIsKilled, AreThoseOfTheLastAnswerOrOfTheRequestUnderWay) {
  constexpr int kKills = 200;
  std::mt19937 random(20221);
  std::uniform_int_distribution<int> answers(1, 3);
  std::uniform_real_distribution<double> part(0.0, 1.1);
  Daemon server;
  Writer writer;
  int cutWrites = 0;
  for (int round = 0; round < kKills; ++round) {
    server.start();
    ASSERT_EQ(filesBesidePreferences(server), 0) << "a crash's temporary file, round " << round;
    PreferenceClient client(server);
    NetConnection& connection = client.connection();
    writer.beginRun();
    std::thread writing([&] { writer.write(connection); });
    // The moment is what is tried, and not waited for: anywhere in a request.
    writer.waitFor(answers(random), part(random));
    server.kill();
    writing.join();

    const std::ptrdiff_t left = filesBesidePreferences(server);
    ASSERT_LE(left, 1);
    cutWrites += static_cast<int>(left);
    ASSERT_TRUE(writer.goesOnFrom(preferencesOnDisk(server))) << "round " << round;
  }
  RecordProperty("answers", writer.answers());
  RecordProperty("cut_writes", cutWrites);
  EXPECT_GT(cutWrites, 0) << "no kill hit the writing of the file";
}

}  // namespace
}  // namespace sorvane::test
