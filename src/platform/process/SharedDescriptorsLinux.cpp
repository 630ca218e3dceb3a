#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <string>
#include <system_error>
#include <thread>

#include "platform/Console.h"
#include "platform/EndProcess.h"
#include "platform/SharedDescriptors.h"
#include "platform/SignalsBlocked.h"

#ifdef __s390__
#error "clone(2) has its arguments in another order here"
#endif

namespace sorvane {
namespace {

/// What fork(2) does in the system, but with one table of descriptors: see clone(2). The C
/// library's fork() takes no flags.
pid_t cloneProcess() {
  constexpr unsigned long kFlags = CLONE_FILES | SIGCHLD;
  return static_cast<pid_t>(syscall(SYS_clone, kFlags, 0UL, nullptr, nullptr, 0UL));
}

/// The C library does not know of the new process: it takes the number of this thread for that of
/// the parent's, so abort(3), raise(3) and recursive locks would go wrong here. A thread that the
/// library starts is a real one, so that one does everything.
[[noreturn]] void runAsChild(pid_t parent, const std::function<void()>& body) {
  // Only this thread, which never ends, may ask for that: the wish belongs to the thread.
  if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || getppid() != parent) {
    _exit(0);  // the parent is gone already, and nothing told of that
  }
  try {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    const SignalsBlocked here;
    std::thread([&] {
      pthread_sigmask(SIG_SETMASK, &mask, nullptr);
      body();
      endProcess();
    }).detach();
    for (;;) {
      pause();
    }
  } catch (const std::system_error& failure) {
    consoleLine(std::string("a process has no thread to begin with: ") + failure.what());
  }
  _exit(0);
}

[[noreturn]] void raiseReason(const char* call) {
  throw std::system_error(errno, std::generic_category(), call);
}

void closeFromTo(unsigned first, unsigned last) {
  if (first <= last && syscall(SYS_close_range, first, last, 0U) != 0) {
    raiseReason("close_range");
  }
}

}  // namespace

std::optional<int> cloneSharingDescriptors(const std::function<void()>& body) {
  fflush(nullptr);  // otherwise both processes would write what is buffered
  const pid_t parent = getpid();
  const pid_t child = cloneProcess();
  if (child == 0) {
    runAsChild(parent, body);
  }
  return child > 0 ? std::optional<int>(child) : std::nullopt;
}

std::vector<int> openDescriptors() {
  std::vector<int> numbers;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    const std::string name = entry.path().filename().string();
    int number = -1;
    if (std::from_chars(name.data(), name.data() + name.size(), number).ec == std::errc()) {
      numbers.push_back(number);
    }
  }
  // That of the listing itself is closed again.
  std::erase_if(numbers, [](int number) { return fcntl(number, F_GETFD) < 0; });
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

void closeDescriptorsExcept(std::vector<int> kept) {
  std::sort(kept.begin(), kept.end());
  unsigned next = STDERR_FILENO + 1;
  for (const int number : kept) {
    if (number >= static_cast<int>(next)) {
      closeFromTo(next, static_cast<unsigned>(number) - 1);
      next = static_cast<unsigned>(number) + 1;
    }
  }
  closeFromTo(next, UINT_MAX);
}

}  // namespace sorvane
