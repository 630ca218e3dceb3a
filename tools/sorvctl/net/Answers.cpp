#include "sorvctl/net/Answers.h"

#include <algorithm>
#include <atomic>
#include <deque>
#include <exception>
#include <system_error>
#include <thread>

#include "sorvctl/Failure.h"
#include "sorvctl/Session.h"

namespace sorvctl::net {

namespace {

using Clock = std::chrono::steady_clock;

/// How many more databases there is room for.
using Room = std::atomic<long long>;

/// Connects by the first of the ways that leads to the server. Each has its share of the time.
Session& connect(std::deque<Session>& sessions, Clock::time_point deadline) {
  for (std::size_t index = 0;; ++index) {
    const auto left = static_cast<int>(sessions.size() - index);
    sessions[index].endBy(Clock::now() + (deadline - Clock::now()) / left);
    try {
      sessions[index].connection();
      sessions[index].endBy(deadline);
      return sessions[index];
    } catch (const Failure&) {
      if (left == 1) {
        throw;
      }
    }
  }
}

void ask(Answer& answer, const Options& common, Clock::time_point deadline, Room& room) {
  try {
    std::deque<Session> sessions;
    for (const Options& way : waysTo(answer.server, common)) {
      sessions.emplace_back(way);
    }
    std::vector<Database> databases = readDatabases(connect(sessions, deadline), kBoundsOfServer);
    if (room.fetch_sub(static_cast<long long>(databases.size())) <
        static_cast<long long>(databases.size())) {
      throw Failure(Status::saidNo, "more than " + std::to_string(kMostDatabasesOfAll) +
                                        " databases in all are too many");
    }
    std::sort(databases.begin(), databases.end(), [](const Database& left, const Database& right) {
      return left.port.name < right.port.name;
    });
    answer.databases = std::move(databases);
    answer.answered = true;
  } catch (const std::exception& error) {
    answer.failure = error.what();
  }
}

}  // namespace

std::vector<Answer> askAll(const std::vector<Server>& servers, const Options& common,
                           std::chrono::milliseconds time) {
  const Clock::time_point deadline = Clock::now() + time;
  Room room = kMostDatabasesOfAll;
  std::vector<Answer> answers;
  for (const Server& server : servers) {
    answers.push_back({server, false, {}, {}});
  }
  std::vector<std::thread> threads;
  for (Answer& answer : answers) {
    try {
      threads.emplace_back([&] { ask(answer, common, deadline, room); });
    } catch (const std::system_error& error) {
      answer.failure = error.what();  // no thread for it
    }
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  return answers;
}

}  // namespace sorvctl::net
