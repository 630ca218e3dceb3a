#include "daemon/Log.h"

#include "platform/Console.h"
#include "platform/VNGlobalPath.h"
#include "system/Streams.h"

namespace sorvane {

char nameserverLogFile[PATH_MAX] = "";
FILE* nameserverlog = nullptr;

void openLog() {
  snprintf(nameserverLogFile, sizeof nameserverLogFile, "%s/Logs/infoserver_log",
           VNGlobalPath::sorvanePath().c_str());
  nameserverlog = VN_fopen(nameserverLogFile, "a+");
  if (nameserverlog == nullptr) {
    nameserverlog = VN_fopen(nameserverLogFile, "w+");
  }
  if (nameserverlog == nullptr) {
    consoleLine("Could not open nameserver log file");
  }
}

void printToLog(const char* text) {
  if (nameserverlog == nullptr || text == nullptr) {
    return;
  }
  fprintf(nameserverlog, "%s\n", text);
  fflush(nameserverlog);
}

void QB_syslog(int /*priority*/, const char* text) { consoleLine(formattedWithoutArguments(text)); }

std::string formattedWithoutArguments(std::string_view format) {
  std::string printed;
  while (!format.empty()) {
    printed += format.front();
    format.remove_prefix(format.starts_with("%%") ? 2 : 1);
  }
  return printed;
}

}  // namespace sorvane
