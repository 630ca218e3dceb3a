#include "platform/TcpPort.h"

namespace sorvane {

std::optional<TcpPortUse> useOfTcpPort(int /*port*/) { return std::nullopt; }

std::optional<EphemeralPorts> ephemeralPorts() { return std::nullopt; }

}  // namespace sorvane
