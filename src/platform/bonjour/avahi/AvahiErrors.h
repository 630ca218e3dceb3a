// Which failures of the Avahi library are permanent.
#pragma once

#include <avahi-common/error.h>

namespace sorvane {

/// Returns true if the call can never succeed with its arguments. Any other failure is one of the
/// connection or of the daemon, and is temporary.
[[nodiscard]] constexpr bool isFaultOfArguments(int error) {
  switch (error) {
    case AVAHI_ERR_INVALID_HOST_NAME:
    case AVAHI_ERR_INVALID_DOMAIN_NAME:
    case AVAHI_ERR_INVALID_SERVICE_NAME:
    case AVAHI_ERR_INVALID_SERVICE_TYPE:
    case AVAHI_ERR_INVALID_SERVICE_SUBTYPE:
    case AVAHI_ERR_INVALID_PORT:
    case AVAHI_ERR_INVALID_ARGUMENT:
    case AVAHI_ERR_NOT_SUPPORTED:
      return true;
    default:
      return false;
  }
}

}  // namespace sorvane
