// The servers that are compared: each in a process of its own, killed at the end of the object.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "driver/Child.h"
#include "driver/EchoServer.h"
#include "driver/ProcessFigures.h"

namespace sorvane::bench {

/// A folder below the system's temporary folder, removed at the end.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

class Server {
 public:
  virtual ~Server() = default;
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  [[nodiscard]] int port() const { return port_; }
  /// The process that was started.
  [[nodiscard]] pid_t process() const { return child_->process(); }
  /// That one, and its children.
  [[nodiscard]] std::vector<pid_t> processes() const { return familyOf(process()); }

 protected:
  explicit Server(int port) : port_(port) {}
  void run(std::unique_ptr<Child> child) { child_ = std::move(child); }
  [[nodiscard]] const Child& child() const { return *child_; }

 private:
  const int port_;
  std::unique_ptr<Child> child_;
};

/// Waits until something listens on the port; raises with what the server wrote when it ends.
void waitUntilListening(int port, const Child& child, const std::filesystem::path& errors);

/// The name server, in an installation of its own.
class NameServer final : public Server {
 public:
  enum class AfterCrash { ends, goesOn };

  /// Starts `program`; `threads` as in its settings. Answers requests when the constructor ends,
  /// unless it shall not `wait`.
  NameServer(const std::filesystem::path& program, const std::vector<int>& cores, int threads,
             bool wait = true, AfterCrash afterCrash = AfterCrash::ends);
  /// Puts another program beside it, which uses the same settings. Returns where.
  [[nodiscard]] std::filesystem::path install(const std::filesystem::path& program) const;
  /// When its process was about to be made.
  [[nodiscard]] std::chrono::steady_clock::time_point started() const { return started_; }

 private:
  const TemporaryFolder tree_;
  std::chrono::steady_clock::time_point started_;
};

/// The limit.
class Echo final : public Server {
 public:
  Echo(const std::vector<int>& cores, const std::vector<EchoStep>& steps);

 private:
  Echo(const std::vector<int>& cores, const std::vector<EchoStep>& steps, Socket listener);
};

/// redis-server or memcached, as it is installed.
class Rival final : public Server {
 public:
  enum class Kind { redis, memcached };

  /// Null when the program is not installed.
  [[nodiscard]] static std::unique_ptr<Rival> start(Kind kind, const std::vector<int>& cores);

 private:
  Rival(Kind kind, const std::filesystem::path& program, const std::vector<int>& cores);
  const TemporaryFolder folder_;
};

}  // namespace sorvane::bench
