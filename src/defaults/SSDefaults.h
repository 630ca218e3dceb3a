// The defaults of a host: settings for all its users, such as how dates are shown.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/PropertyList.h"

namespace sorvane {

class NetConnection;

/// Reads the defaults of a host, and writes them back through the launcher of that host. The
/// defaults of this host are read from the file "SorvDefaults" in the server configuration
/// directory. The defaults of another host are requested from its launcher. This class gives no key
/// a meaning.
///
/// The defaults are read when they are first needed, and stay in memory until `freeDefaults`.
/// Nothing is thrown: defaults that cannot be read are empty. A call that talks to a launcher waits
/// at most for the time limits of `NetConnection`, unless `setTimeLimit` sets another. Only one
/// thread may use an object at a time. Calls that return `SSDefaults&` return the object itself.
class SSDefaults {
 public:
  /// Texts by their keys. A value that is not a text counts as absent, but is kept when the
  /// defaults are written back.
  using Dictionary = PropertyList::Dictionary;

  /// Returns the defaults of that host; the empty name means this host. Reads nothing yet.
  [[nodiscard]] static std::shared_ptr<SSDefaults> newForHost(std::string_view hostName);
  /// Returns the defaults in the file of this host. Reads nothing yet.
  [[nodiscard]] static std::shared_ptr<SSDefaults> newDirectLoad();

  explicit SSDefaults(std::string_view hostName);

  /// Sets the longest time to wait for a connection to a launcher, and for its reply. Applies from
  /// the next call on.
  void setTimeLimit(std::chrono::milliseconds limit) { timeLimit_ = limit; }

  /// Returns the text under a key, or null when there is none. The text lives until the value is
  /// set again, or until the defaults in memory are read again or freed.
  [[nodiscard]] const char* getDefault(const char* key);
  /// Sets a text in memory only.
  SSDefaults& setDefault(const char* key, const char* value);

  /// Drops the defaults in memory and reads them again. They are empty when none can be read.
  SSDefaults& readDefaults();
  /// Reads the stored defaults and returns them. Those in memory stay as they are. Returns nothing
  /// when the host cannot be reached. The defaults of a launcher that was reached and gives no
  /// usable reply are empty.
  [[nodiscard]] std::optional<Dictionary> readDefaultDictionary();
  /// Returns why the last reading got no reply from a launcher, in words; empty when it got one or
  /// needed none. Empty defaults that were not read should not be written back.
  [[nodiscard]] const std::string& lastError() const { return lastError_; }
  /// Reads the file of this host and returns its defaults. Returns an empty dictionary when the
  /// file is not a property list with a dictionary on top.
  [[nodiscard]] static Dictionary localDatabasePreferences();

  /// Sends the defaults in memory to the launcher, which checks the password. Returns 1 when the
  /// launcher has accepted them, else 0. Returns 0 also when there are none in memory.
  int writeDefaultsWithPassword(std::string_view password);
  /// The same with a given dictionary; null means that there is none. Both functions print one line
  /// with the launcher's reply to standard output on each call.
  int writeDefaultDictionary(const Dictionary* dictionary, std::string_view password);

  /// Drops the defaults in memory. The next use reads them again.
  SSDefaults& freeDefaults();

 private:
  [[nodiscard]] Dictionary& defaults();
  [[nodiscard]] bool connectTo(NetConnection& launcher) const;

  const std::string hostName_;                          // empty: this host
  std::optional<std::chrono::milliseconds> timeLimit_;  // nothing: those of NetConnection
  std::optional<Dictionary> defaultDictionary_;         // nothing until first needed
  std::string lastError_;
};

}  // namespace sorvane
