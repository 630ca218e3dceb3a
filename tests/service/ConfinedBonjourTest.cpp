// The confined name server reaches D-Bus.
#include <gtest/gtest.h>

#include "integration/AvahiHost.h"
#include "service/Confined.h"

namespace sorvane::test {
namespace {

TEST_F(Confined, NameServerIsPublishedByBonjour) {
  AvahiHost alpha("alpha");
  AvahiHost beta("beta");
  connectByCable(alpha.network(), "198.51.100.1/24", beta.network(), "198.51.100.2/24");
  // D-Bus knows the users of its host.
  alpha.network().run("mount", {"--bind", (*host_)["/etc/passwd"], "/etc/passwd"});
  alpha.startDaemons();
  beta.startDaemons();
  const auto finder =
      beta.start(SORVANE_BINARY_DIR "/tests/programs/bonjour_peer", {"browse", "_sorvane._tcp"});
  start(alpha.inside());
  EXPECT_TRUE(finder->prints("alpha 198.51.100.1 20221\n")) << server_->errors();
}

}  // namespace
}  // namespace sorvane::test
