// What a name server has told of its registry, page by page.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/Message.h"
#include "sorvctl/Database.h"

namespace sorvctl {

/// How much is kept of what one name server tells.
struct PictureBounds {
  std::size_t names = kMostDatabases;
  std::size_t bytes = std::size_t{512} << 20;  ///< of all texts: no registry holds more
};

/// All names that are registered, as the replies to "portChanges" tell them. To follow a registry,
/// send `request`, give the reply to `take`, and go on as long as there is more. Knows no
/// connection.
class PortPicture {
 public:
  /// The most names, gone ones among them, that may come before there is no more to ask for.
  /// Names that change meanwhile come again, so these are more than may be kept.
  static constexpr std::size_t kMostToldForEachKept = 4;
  static constexpr std::size_t kMostToldBeyond = 10'000;

  explicit PortPicture(PictureBounds bounds = {}) : bounds_(bounds) {}

  /// The request for what has changed since the last reply, or for everything.
  [[nodiscard]] sorvane::Message request() const;

  enum class Next {
    askAgain,  ///< there is more
    complete,  ///< the picture is that of the registry
    lacking,   ///< the server has no such command; the picture is as it was
  };
  /// Takes a reply. Throws a Failure of status `saidNo`, whose words tell what is wrong, when it is
  /// malformed, promises more without telling anything, tells for ever, or passes the bounds. The
  /// picture is empty then, and the next request is one for everything.
  [[nodiscard]] Next take(const sorvane::Message& reply);

  /// Forgets all: the next request is one for everything.
  void forget();

  /// The databases, ordered by name: all names but those that the lists of a name server leave out,
  /// its own two and the launcher's.
  [[nodiscard]] std::vector<Database> databases() const;

 private:
  void takeEntries(const sorvane::Message& reply);
  void takeRow(std::string_view key, std::string_view row);

  PictureBounds bounds_;
  std::map<std::string, Database> ports_;
  std::size_t bytes_ = 0;  // of their texts
  std::size_t told_ = 0;   // names since there was no more to ask for
  std::string instance_;   // of the last reply, as is the next
  std::string sequence_;
};

}  // namespace sorvctl
