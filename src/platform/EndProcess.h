// The only function by which a program of the product ends its own process.
#pragma once

namespace sorvane {

/// Makes `endProcess` call `function` before it does anything else. The function may be called on
/// any thread, on several at once, and must not wait. Null: none, as at first. Any thread.
void setLastAct(void (*function)());

/// Flushes standard output and ends the process at once with status 0. Runs no destructor and no
/// exit handler, because other threads still use what these would destroy. Any thread.
[[noreturn]] void endProcess();

}  // namespace sorvane
