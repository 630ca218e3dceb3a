// Takes the terminal and ends by an exception that nobody catches.
#include <stdexcept>

#include "sorvctl/top/Screen.h"

int main() {
  using namespace sorvctl;
  top::Screen::use(false, [](top::Screen& screen) {
    screen.show({{{{0, 20, "on the screen", Tone::plain}}, false}});
    throw std::runtime_error("thrown on purpose");
  });
}
