// Clients of the real name server that follow its registry.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <utility>

#include "integration/Client.h"
#include "model/Follower.h"

namespace sorvane::model {

/// A follower with a connection of its own.
class Asker {
 public:
  Asker(const test::Daemon& server, std::size_t limit) : client_(server), limit_(limit) {}

  /// Asks once. Returns false, and fails the test, if the reply is wrong.
  bool asksOnce() {
    const auto reply = client_.connection().ask(follower_.question(std::to_string(limit_)));
    const std::string fault =
        reply ? follower_.takesIn(reply->body, limit_, false) : "the connection was closed";
    EXPECT_EQ(fault, "");
    return fault.empty();
  }
  /// Asks until there is no more. Returns the same.
  bool asksForAll() {
    do {
      if (!asksOnce()) {
        return false;
      }
    } while (!follower_.knowsAll());
    return true;
  }
  [[nodiscard]] Picture picture() const { return follower_.picture(0); }

 private:
  test::Client client_;
  Follower follower_;
  const std::size_t limit_;
};

/// The picture without the name server's own names.
[[nodiscard]] inline Picture withoutOwn(Picture picture) {
  picture.erase("VN_infoserver");
  picture.erase("VN_nameserver");
  return picture;
}

}  // namespace sorvane::model
