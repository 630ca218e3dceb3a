// The events of poll(2) that differ between operating systems.
#pragma once

namespace sorvane {

// PollEventsLinux.cpp, PollEventsMacos.cpp

/// Returns the event by which `poll` tells that the peer of a socket sends nothing more, even while
/// there are bytes to read.
[[nodiscard]] short peerEndEvents();

}  // namespace sorvane
