// The only functions by which a program of the product ends its own process.
#pragma once

namespace sorvane {

/// Makes `endProcess` call `function` before it does anything else. The function may be called on
/// any thread, on several at once, and must not wait. Null: none, as at first. Any thread.
void setLastAct(void (*function)());

/// Flushes standard output and ends the process at once with status 0. Runs no destructor and no
/// exit handler, because other threads still use what these would destroy. Any thread.
[[noreturn]] void endProcess();

/// Ends this process at once as another one has ended: with the same exit status, or by the same
/// signal, one that ends a process. `status` is that of waitpid(2). Flushes and calls nothing. Any
/// thread.
[[noreturn]] void endProcessAs(int status);

}  // namespace sorvane
