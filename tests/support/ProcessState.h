// What a whole process shares and tests change: it is put back after each test by itself.
#pragma once

namespace sorvane::test {

/// Puts everything back that belongs to the process as a whole: the settings (to those without a
/// file), the host, the console, the clock, the time zone, the working folder, the mask of new
/// files, the way to Bonjour, and what the tests of the folders above platform/ have registered.
/// The test programs call this after each test, when its fixture is gone; no fixture has to.
void resetProcessState();

/// Registers a function that `resetProcessState` calls, too, for as long as the process lives: for
/// variables at namespace scope in the tests of the folder whose state it is.
class ResetWithProcessState {
 public:
  explicit ResetWithProcessState(void (*reset)());
};

/// Moves this process to another time zone, a value of TZ.
void moveToTimeZone(const char* zone);

}  // namespace sorvane::test
