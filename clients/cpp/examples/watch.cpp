// Prints a line for each change of the databases of this machine until its standard input ends.
#include <sorvane/client.h>

#include <cstdlib>
#include <iostream>

using namespace sorvane::client;

int main(int count, char** words) {
  NameServer server;
  if (count > 1) server.port = static_cast<std::uint16_t>(std::atoi(words[1]));
  Watch::Options options;
  options.onChange = [](const Change& change) {
    const char* const kinds[] = {"registered", "changed", "gone"};
    std::cout << kinds[static_cast<int>(change.kind)] << " " << change.entry.name << " "
              << change.entry.number << " " << change.entry.state << std::endl;
  };
  options.onStatus = [](const Watch::Status& status) {
    std::cerr << (status.current ? "that is all" : status.reason) << std::endl;
  };
  const auto watch = Watch::start(server, options);
  if (!watch) return 2;
  std::cin.ignore(1 << 20, EOF);
}
