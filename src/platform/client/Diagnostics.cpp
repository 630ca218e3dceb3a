#include "platform/client/Diagnostics.h"

#include <atomic>

#include "platform/Console.h"
#include "platform/NetConnection.h"

namespace sorvane {

namespace {
std::atomic<bool> wanted{false};
}

bool diagnosticsWanted() { return wanted.load(std::memory_order_relaxed); }

void diagnosticLine(std::string_view text) {
  if (diagnosticsWanted()) {
    consoleLine(text);
  }
}

void NetConnection::setVerbose() { wanted.store(true, std::memory_order_relaxed); }

}  // namespace sorvane
