#include "integration/AvahiHost.h"

#include <signal.h>
#include <stdlib.h>

#include <stdexcept>
#include <utility>

namespace sorvane::test {
namespace {

std::string busConfiguration(const std::string& address) {
  return "<busconfig>\n"
         "  <type>system</type>\n"
         "  <listen>" +
         address +
         "</listen>\n"
         "  <policy context=\"default\">\n"
         "    <allow user=\"*\"/>\n"
         "    <allow own=\"*\"/>\n"
         "    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
         "    <allow eavesdrop=\"true\"/>\n"
         "  </policy>\n"
         "</busconfig>\n";
}

std::string avahiConfiguration(const std::string& hostName) {
  return "[server]\n"
         "host-name=" +
         hostName +
         "\n"
         "use-ipv4=yes\n"
         "use-ipv6=no\n"
         "allow-interfaces=eth0\n"
         "[wide-area]\n"
         "enable-wide-area=no\n"
         "[publish]\n"
         "publish-hinfo=no\n"
         "publish-workstation=no\n";
}

void require(bool done, const std::string& what, const Program& program) {
  if (!done) {
    throw std::runtime_error(what + ": " + program.errors());
  }
}

void end(std::unique_ptr<Program>& program) {
  program->signal(SIGCONT);
  program->signal(SIGTERM);
  require(program->wait().has_value(), "a daemon does not end", *program);
  program.reset();
}

}  // namespace

AvahiHost::AvahiHost(std::string name) : name_(std::move(name)) {}

std::string AvahiHost::busAddress() const { return "unix:path=" + (folder_ / "bus").string(); }

void AvahiHost::startBus() {
  writeFile(folder_ / "bus.conf", busConfiguration(busAddress()));
  bus_ = start(systemProgram("dbus-daemon"),
               {"--config-file=" + (folder_ / "bus.conf").string(), "--nofork", "--nopidfile",
                "--nosyslog", "--print-address"});
  require(bus_->prints("unix:path="), "D-Bus does not start", *bus_);
}

void AvahiHost::stopBus() { end(bus_); }

void AvahiHost::startAvahi() {
  writeFile(folder_ / "avahi.conf", avahiConfiguration(name_));
  avahi_ = start(systemProgram("avahi-daemon"),
                 {"-f", (folder_ / "avahi.conf").string(), "--no-drop-root", "--no-chroot",
                  "--no-rlimits", "--no-proc-title"});
  require(avahi_->complains("Server startup complete."), "Avahi does not start", *avahi_);
}

void AvahiHost::stopAvahi() { end(avahi_); }

void AvahiHost::startDaemons() {
  startBus();
  startAvahi();
}

std::function<void()> AvahiHost::inside() const {
  return [this, address = busAddress()] {
    network_.enter();
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
  };
}

std::unique_ptr<Program> AvahiHost::start(const std::filesystem::path& program,
                                          std::vector<std::string> arguments) const {
  return std::make_unique<Program>(program, std::move(arguments), Program::Options{"", inside()});
}

}  // namespace sorvane::test
