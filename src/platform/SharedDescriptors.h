// Processes that share one table of descriptors: what one of them opens or closes is open or closed
// in the other one, too, and stays open when one of them dies.
#pragma once

#include <functional>
#include <optional>
#include <vector>

namespace sorvane {

// ---- process/SharedDescriptorsLinux.cpp, process/SharedDescriptorsMacos.cpp

/// Starts a process as fork(2) does, but shares the table of descriptors with it. The caller has no
/// second thread. Memory is not shared: the new process has a copy. It runs `body` on a thread that
/// has the caller's signal mask, and ends by abort(3) if `body` raises, with status 0 if it returns
/// or if there is no thread. It is killed when the calling thread ends. The caller waits for its
/// end. Flushes the standard streams first.
///
/// Returns the number of the process. Returns nothing if there is none; `errno` has the reason:
/// ENOSYS on a system where processes cannot share descriptors.
[[nodiscard]] std::optional<int> cloneSharingDescriptors(const std::function<void()>& body);

/// Returns the numbers of all open descriptors, lowest first. Raises std::system_error if the
/// system does not tell. No other thread may open or close one meanwhile.
[[nodiscard]] std::vector<int> openDescriptors();

/// Closes all descriptors but the standard ones and those in `kept`, which may hold numbers that
/// are not open. Raises std::system_error if the system cannot; some may be closed then. No other
/// thread may use one that is closed.
void closeDescriptorsExcept(std::vector<int> kept);

}  // namespace sorvane
