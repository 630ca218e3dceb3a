// The terminal while the live view has it: drawing, keys, and putting it back.
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "sorvctl/top/Board.h"
#include "sorvctl/top/Picture.h"

namespace sorvctl::top {

/// Takes the terminal of standard input and output from its making to its end, which puts it back.
/// One at a time, on one thread. Signals that end the process or stop it are for the caller to
/// handle, or the terminal stays as it is.
class Screen {
 public:
  /// Calls `work` with a screen. Puts the terminal back whatever `work` throws, also when nobody
  /// catches that.
  static void use(bool coloured, const std::function<void(Screen&)>& work);

  /// Sets the locale for characters: that of the environment if it is one of UTF-8, else "C.UTF-8".
  /// Throws a Failure of `wrongUsage` when standard input and output are no terminal, or one of an
  /// unknown kind.
  explicit Screen(bool coloured);
  ~Screen();
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;

  [[nodiscard]] Size size() const;
  /// Draws what differs from the last picture.
  void show(const Picture& picture);
  /// The next key that was pressed; nothing when none is waiting. Keys that mean nothing are left
  /// out.
  [[nodiscard]] std::optional<Press> read();

  /// Takes the size of the terminal anew.
  void resize();
  /// Puts the terminal back for a while.
  void leave();
  /// Takes it again, and draws everything anew.
  void enter();

 private:
  struct Curses;

  std::unique_ptr<Curses> curses_;
};

}  // namespace sorvctl::top
