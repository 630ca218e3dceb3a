// The files that the name server writes, and whether it can.
#pragma once

#include <optional>
#include <string>

#include "platform/Descriptor.h"
#include "platform/Settings.h"
#include "platform/SystemProcess.h"

namespace sorvctl::doctor {

struct ServerFiles {
  std::string log;
  std::string preferences;
};

[[nodiscard]] ServerFiles serverFiles(const sorvane::Settings& settings);

/// The eyes of the name server: its user, and the file system as it sees it. If none runs, those of
/// this command, if it is root or the owner of `folder`. One thread.
class ServerView {
 public:
  ServerView(const sorvane::SystemProcess* server, const std::string& folder);

  /// The name of the user.
  [[nodiscard]] const std::string& user() const { return user_; }
  /// True if this command may look with these eyes: as that user itself, or as root.
  [[nodiscard]] bool isAllowed() const { return allowed_; }

  /// Why the user cannot write a file, or create it in its folder; 0 if it can, otherwise an errno.
  [[nodiscard]] int whyNotWritable(const std::string& file) const;
  /// The same for a file that is replaced by another one in its folder. Missing folders are
  /// created, so the nearest one that exists counts.
  [[nodiscard]] int whyNotReplaceable(const std::string& file) const;

 private:
  enum class Use { written, replaced };
  [[nodiscard]] int ask(Use use, const std::string& file) const;

  std::optional<sorvane::SystemProcess::Owner> owner_;  ///< of another user than this command's
  std::string user_;
  bool allowed_ = true;
  sorvane::Descriptor root_;  ///< the root folder of the name server; none: that of this command
};

}  // namespace sorvctl::doctor
