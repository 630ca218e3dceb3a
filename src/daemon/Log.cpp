#include "daemon/Log.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <string>
#include <utility>

#include "platform/Console.h"
#include "platform/Settings.h"
#include "platform/VNGlobalPath.h"
#include "system/Streams.h"

namespace sorvane {
namespace {

constexpr std::string_view kStopLine =
    "The log has reached MaxLogBytes. It goes on when the file is shorter or another one.\n";

enum class EntryEnd : std::uint8_t { written, leftOut, firstLeftOut };

/// The file that is open as the log, and whether it takes entries.
class LogFile {
 public:
  LogFile() = default;
  explicit LogFile(std::int64_t maximumBytes) : maximumBytes_(maximumBytes) { identify(); }

  [[nodiscard]] EntryEnd write(const std::string& entry) {
    const std::int64_t bytes = followPath();
    if (stopped_ && bytes >= bytesWhenStopped_) {
      ++leftOut_;
      return EntryEnd::leftOut;
    }
    std::string text;
    if (leftOut_ > 0) {
      text = std::to_string(leftOut_) + " log entries were left out\n";
    }
    text += entry;
    if (maximumBytes_ == 0 || hasRoom(bytes, text.size() + kStopLine.size())) {
      append(text);
      stopped_ = false;
      leftOut_ = 0;
      return EntryEnd::written;
    }
    bytesWhenStopped_ = bytes;
    if (hasRoom(bytes, kStopLine.size())) {
      append(kStopLine);
      bytesWhenStopped_ += static_cast<std::int64_t>(kStopLine.size());
    }
    ++leftOut_;
    return std::exchange(stopped_, true) ? EntryEnd::leftOut : EntryEnd::firstLeftOut;
  }

 private:
  /// Opens the log anew if the file at its path is another one or is gone. If that fails, the old
  /// file goes on. Returns the length of the file; 0 for what is no plain file.
  std::int64_t followPath() {
    struct stat status {};
    if (stat(nameserverLogFile, &status) != 0 || status.st_dev != device_ ||
        status.st_ino != file_) {
      if (FILE* const opened = VN_fopen(nameserverLogFile, "a+")) {
        VN_fclose(std::exchange(nameserverlog, opened));
        stopped_ = false;
      }
      status = identify();
    }
    return S_ISREG(status.st_mode) ? status.st_size : 0;
  }

  struct stat identify() {
    struct stat status {};
    if (fstat(fileno(nameserverlog), &status) == 0) {
      device_ = status.st_dev;
      file_ = status.st_ino;
    }
    return status;
  }

  [[nodiscard]] bool hasRoom(std::int64_t bytes, std::size_t more) const {
    return std::cmp_less_equal(more, std::max<std::int64_t>(maximumBytes_ - bytes, 0));
  }

  static void append(std::string_view text) {
    fwrite(text.data(), 1, text.size(), nameserverlog);
    fflush(nameserverlog);
  }

  std::int64_t maximumBytes_ = 0;  // 0: no limit
  dev_t device_ = 0;
  ino_t file_ = 0;
  bool stopped_ = false;
  std::int64_t bytesWhenStopped_ = 0;
  long long leftOut_ = 0;  // entries, since it stopped
};

std::mutex logMutex;  // held while an entry is written
LogFile logFile;      // guarded by logMutex

void reportStop() {
  static auto* const limit = new ConsoleRateLimit;
  limit->line("the log " + std::string(nameserverLogFile) +
              " has reached MaxLogBytes; entries are left out");
}

}  // namespace

char nameserverLogFile[PATH_MAX] = "";
FILE* nameserverlog = nullptr;

void openLog() {
  snprintf(nameserverLogFile, sizeof nameserverLogFile, "%s/Logs/infoserver_log",
           VNGlobalPath::sorvanePath().c_str());
  nameserverlog = VN_fopen(nameserverLogFile, "a+");
  if (nameserverlog == nullptr) {
    nameserverlog = VN_fopen(nameserverLogFile, "w+");
  }
  if (nameserverlog == nullptr) {
    consoleLine("Could not open nameserver log file");
    return;
  }
  logFile = LogFile(Settings::current().maxLogBytes);
}

void printToLog(const char* text) {
  if (text == nullptr) {
    return;
  }
  auto end = EntryEnd::leftOut;
  {
    const std::lock_guard<std::mutex> hold(logMutex);
    if (nameserverlog == nullptr) {
      return;
    }
    end = logFile.write(std::string(text) + "\n");
  }
  if (end == EntryEnd::firstLeftOut) {
    reportStop();
  }
}

void QB_syslog(int /*priority*/, const char* text) { consoleLine(formattedWithoutArguments(text)); }

std::string formattedWithoutArguments(std::string_view format) {
  std::string printed;
  while (!format.empty()) {
    printed += format.front();
    format.remove_prefix(format.starts_with("%%") ? 2 : 1);
  }
  return printed;
}

}  // namespace sorvane
