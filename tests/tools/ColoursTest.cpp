#include <gtest/gtest.h>

#include "sorvctl/Colours.h"
#include "sorvctl/TerminalText.h"

namespace sorvctl {
namespace {

/// Colours are off again behind each test.
class Colours : public testing::Test {
 protected:
  ~Colours() override { useColours(Colouring::never); }
};

TEST_F(Colours, AreOffUntilTheyAreWanted) { EXPECT_EQ(toned("full", Tone::bad), "full"); }

TEST_F(Colours, StandAroundATextWhenTheyAreWanted) {
  useColours(Colouring::always);
  EXPECT_EQ(toned("full", Tone::bad), "\x1b[31mfull\x1b[0m");
  EXPECT_EQ(toned("NAME", Tone::heading), "\x1b[1mNAME\x1b[0m");
  EXPECT_EQ(toned("full", Tone::plain), "full");
  EXPECT_EQ(toned("", Tone::bad), "");
  useColours(Colouring::never);
  EXPECT_EQ(toned("full", Tone::bad), "full");
}

TEST_F(Colours, TakeNoRoomInATable) {
  useColours(Colouring::always);
  EXPECT_EQ(aligned({{{"a", Tone::good}, {"1"}}, {{"bc"}, {"2", Tone::bad}}}),
            "\x1b[32ma\x1b[0m   1\nbc  \x1b[31m2\x1b[0m\n");
}

TEST_F(Colours, EndWithACutText) {
  useColours(Colouring::always);
  EXPECT_EQ(aligned({{{"abcdef", Tone::bad}}}, 4), "\x1b[31mabc…\x1b[0m\n");
}

}  // namespace
}  // namespace sorvctl
