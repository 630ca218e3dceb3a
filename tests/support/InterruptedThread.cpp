#include "support/InterruptedThread.h"

#include <unistd.h>

#include <atomic>
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

void waitForState(const std::atomic<pid_t>& number, char state) {
  while (number == 0 || stateOfThread(number) != state) {
    std::this_thread::yield();
  }
}

}  // namespace

InterruptedThread::InterruptedThread(std::function<void()> body) {
  struct sigaction action {};
  action.sa_handler = takeSignal;  // without SA_RESTART: the call itself comes back
  sigaction(SIGUSR1, &action, &earlier_);
  thread_ = std::thread([this, body = std::move(body)] {
    number_ = gettid();
    body();
  });
}

InterruptedThread::~InterruptedThread() {
  if (thread_.joinable()) {
    thread_.join();
  }
  sigaction(SIGUSR1, &earlier_, nullptr);
}

void InterruptedThread::interrupt() {
  waitForState(number_, 'S');
  const int before = signalsTaken;
  pthread_kill(thread_.native_handle(), SIGUSR1);
  while (signalsTaken == before) {
    std::this_thread::yield();
  }
}

}  // namespace sorvane::test
