#include "integration/DaemonProcess.h"

#include <unistd.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace sorvane::test {

std::string DaemonProcess::statusField(const std::string& name) const {
  std::ifstream status(folder() / "status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.starts_with(name + ":")) {
      return line.substr(line.find_first_not_of(" \t", name.size() + 1));
    }
  }
  throw std::runtime_error("process " + std::to_string(process_) + " has no " + name);
}

bool DaemonProcess::sleeps() const {
  for (const auto& thread : std::filesystem::directory_iterator(folder() / "task")) {
    std::ifstream file(thread.path() / "stat");
    std::string line;
    std::getline(file, line);
    if (line.find(") S ") == std::string::npos) {
      return false;
    }
  }
  return true;
}

int DaemonProcess::openSockets() const {
  int sockets = 0;
  for (const auto& descriptor : std::filesystem::directory_iterator(folder() / "fd")) {
    std::error_code closed;  // descriptors are closed while they are listed
    sockets +=
        std::filesystem::read_symlink(descriptor.path(), closed).string().starts_with("socket:");
  }
  return sockets;
}

int DaemonProcess::openDescriptors() const {
  const std::filesystem::directory_iterator descriptors(folder() / "fd");
  return static_cast<int>(std::distance(begin(descriptors), end(descriptors)));
}

double DaemonProcess::seconds() const {
  std::ifstream file(folder() / "stat");
  std::string line;
  std::getline(file, line);
  std::istringstream fields(line.substr(line.rfind(')') + 1));
  std::string skipped;
  for (int i = 3; i <= 13; ++i) {  // utime is the 14th field, stime follows: see proc(5)
    fields >> skipped;
  }
  double user = 0;
  double system = 0;
  fields >> user >> system;
  return (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

std::pair<std::string, std::string> DaemonProcess::limit(const std::string& name) const {
  std::ifstream limits(folder() / "limits");
  std::string line;
  while (std::getline(limits, line)) {
    if (line.starts_with(name)) {
      std::istringstream fields(line.substr(name.size()));
      std::pair<std::string, std::string> both;
      fields >> both.first >> both.second;
      return both;
    }
  }
  throw std::runtime_error("no limit is called " + name);
}

}  // namespace sorvane::test
