// The defaults of a host: what it has settled for all its users, such as how dates are shown.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/PropertyList.h"

namespace sorvane {

class NetConnection;

/// Reads the defaults of a host, and writes them back through that host's launcher. This host's
/// own are read from the file "SorvDefaults" in the server configuration directory, another host's
/// are asked of its launcher. No key has a meaning here.
///
/// The defaults are read when first needed and then stay in memory until `freeDefaults`. Nothing is
/// thrown: defaults that cannot be had are empty. Reading from and writing to a launcher wait, at
/// most for the time limits of `NetConnection`. One thread at a time.
class SSDefaults {
 public:
  /// Texts by their keys. A value of another kind counts as absent, but is kept when written back.
  using Dictionary = PropertyList::Dictionary;

  /// The defaults of that host; the empty name means this one. Nothing is read yet.
  [[nodiscard]] static std::shared_ptr<SSDefaults> newForHost(std::string_view hostName);
  /// The defaults in the file of this host.
  [[nodiscard]] static std::shared_ptr<SSDefaults> newDirectLoad();

  explicit SSDefaults(std::string_view hostName);

  /// The longest to wait for connecting to a launcher, and for its reply, from now on.
  void setTimeLimit(std::chrono::milliseconds limit) { timeLimit_ = limit; }

  /// The text under a key, null when there is none. It lives until the value is set again or the
  /// defaults leave the memory.
  [[nodiscard]] const char* getDefault(const char* key);
  /// Sets a text, in memory alone.
  void setDefault(const char* key, const char* value);

  /// Reads the defaults anew; those in memory are gone, also when none can be had.
  void readDefaults();
  /// Reads the defaults from where they are kept, without touching those in memory. Nothing when
  /// the host cannot be reached or its launcher gives no reply.
  [[nodiscard]] std::optional<Dictionary> readDefaultDictionary() const;
  /// Reads the file of this host; empty when it is no property list with a dictionary on top.
  [[nodiscard]] static Dictionary localDatabasePreferences();

  /// Sends the defaults in memory to the launcher, which checks the password. Answers 1 when it
  /// took them, else 0, also with nothing in memory.
  int writeDefaultsWithPassword(std::string_view password);
  /// The same with a dictionary, null for none. Each call prints one line with the launcher's
  /// reply to standard output.
  int writeDefaultDictionary(const Dictionary* dictionary, std::string_view password);

  /// Forgets the defaults in memory; the next use reads them again.
  void freeDefaults();

 private:
  [[nodiscard]] Dictionary& defaults();
  [[nodiscard]] bool connectTo(NetConnection& launcher) const;

  const std::string hostName_;                          // empty: this host
  std::optional<std::chrono::milliseconds> timeLimit_;  // nothing: those of NetConnection
  std::optional<Dictionary> defaultDictionary_;         // nothing until first needed
};

}  // namespace sorvane
