// A build without Bonjour. Nothing is published and nothing is found; everything else works.
#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform/Console.h"
#include "platform/NetService.h"

namespace sorvane {
namespace {

constexpr std::string_view kReason = "this program was built without Bonjour";

class ThreadRunLoop : public RunLoop {
 public:
  ThreadRunLoop() {
    std::thread([this] { run(); }).detach();
  }

  void performAfterDelay(std::chrono::milliseconds delay, Call call) override {
    {
      const std::lock_guard hold(mutex_);
      calls_.add(Clock::now() + delay, std::move(call));
    }
    added_.notify_one();
  }

 private:
  [[noreturn]] void run() {
    while (true) {
      {
        std::unique_lock hold(mutex_);
        const std::optional<Clock::time_point> due = calls_.nextDue();
        if (!due.has_value()) {
          added_.wait(hold);
        } else if (*due > Clock::now()) {
          added_.wait_until(hold, *due);
        }
      }
      calls_.makeDue(Clock::now());
    }
  }

  std::mutex mutex_;  // so that no call is added between looking and waiting
  std::condition_variable added_;
  DelayedCalls calls_;
};

void reportOnce() {
  static bool reported = false;  // used by the run loop's thread alone
  if (!reported) {
    reported = true;
    consoleLine("Bonjour: " + std::string(kReason) + "; nothing is published or found");
  }
}

class AbsentService : public NetService {
 public:
  AbsentService(RunLoop& runLoop, const std::string& domain, const std::string& type,
                const std::string& name)
      : NetService(domain, type, name), runLoop_(runLoop) {}

  void publish() override {
    runLoop_.perform(calls_.cancellable([this] {
      reportOnce();
      if (delegate() != nullptr) {
        delegate()->netServiceDidNotPublish(*this, kReason);
      }
    }));
  }
  void resolve() override {
    runLoop_.perform(calls_.cancellable([this] {
      if (delegate() != nullptr) {
        delegate()->netServiceDidNotResolve(*this, kReason);
      }
    }));
  }
  void stop() override { calls_.cancelAll(); }
  std::vector<std::string> addresses() const override { return {}; }

 private:
  RunLoop& runLoop_;
  CancellableCalls calls_;
};

class AbsentBrowser : public NetServiceBrowser {
 public:
  explicit AbsentBrowser(RunLoop& runLoop) : runLoop_(runLoop) {}

  void searchForServicesOfType(const std::string&, const std::string&) override {
    runLoop_.perform(calls_.cancellable([this] {
      reportOnce();
      if (delegate() != nullptr) {
        delegate()->netServiceBrowserDidNotSearch(*this, kReason);
      }
    }));
  }
  void stop() override { calls_.cancelAll(); }

 private:
  RunLoop& runLoop_;
  CancellableCalls calls_;
};

class AbsentServiceDiscovery : public ServiceDiscovery {
 public:
  RunLoop& runLoop() override { return runLoop_; }
  std::shared_ptr<NetService> makeService(const std::string& domain, const std::string& type,
                                          const std::string& name, int) override {
    return std::make_shared<AbsentService>(runLoop_, domain, type, name);
  }
  std::unique_ptr<NetServiceBrowser> makeBrowser() override {
    return std::make_unique<AbsentBrowser>(runLoop_);
  }

 private:
  ThreadRunLoop runLoop_;
};

}  // namespace

ServiceDiscovery& ServiceDiscovery::ofPlatform() {
  // Never destroyed: its thread runs until the process ends.
  static auto* const discovery = new AbsentServiceDiscovery;
  return *discovery;
}

}  // namespace sorvane
