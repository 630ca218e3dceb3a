#include "support/WatchedThread.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <string>

namespace sorvane::test {
namespace {

std::atomic<int> signalsTaken{0};

void takeSignal(int /*signal*/) { ++signalsTaken; }

/// The state letter that the system shows for a thread of this process: S for one that waits.
char stateOfThread(pid_t number) {
  std::ifstream file("/proc/self/task/" + std::to_string(number) + "/stat");
  std::string text;
  std::getline(file, text);
  const std::size_t end = text.rfind(')');
  return end == std::string::npos || end + 2 >= text.size() ? '?' : text[end + 2];
}

}  // namespace

WatchedThread::WatchedThread(std::function<void()> body) {
  struct sigaction action {};
  action.sa_handler = takeSignal;  // without SA_RESTART: the call itself comes back
  sigaction(SIGUSR1, &action, &earlier_);
  thread_ = std::thread([this, body = std::move(body)] {
    number_ = gettid();
    body();
    done_ = true;
  });
}

WatchedThread::~WatchedThread() {
  if (thread_.joinable()) {
    thread_.join();
  }
  sigaction(SIGUSR1, &earlier_, nullptr);
}

bool WatchedThread::comesToAWait() const {
  while (!done_) {
    if (number_ != 0 && stateOfThread(number_) == 'S') {
      return !done_;
    }
    std::this_thread::yield();
  }
  return false;
}

void WatchedThread::interrupt() {
  ASSERT_TRUE(comesToAWait());
  const int before = signalsTaken;
  pthread_kill(thread_.native_handle(), SIGUSR1);
  while (signalsTaken == before) {
    std::this_thread::yield();
  }
}

}  // namespace sorvane::test
