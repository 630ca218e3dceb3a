// Holds a name at the name server of this machine until its standard input ends.
#include <sorvane/client.h>

#include <cstdlib>
#include <iostream>

using namespace sorvane::client;

int main(int count, char** words) {
  NameServer server;
  if (count > 2) server.port = static_cast<std::uint16_t>(std::atoi(words[2]));
  Registration::Options options;
  options.name = count > 1 ? words[1] : "db1";
  options.onStatus = [](const Registration::Status& status) {
    std::cerr << status.number << " " << status.reason << "\n";
  };
  auto registration = Registration::start(server, options);
  if (!registration || !registration->setState("running")) return 2;
  const auto number = registration->waitUntilRegistered(std::chrono::seconds(10));
  if (!number) return 1;
  std::cout << *number << std::endl;  // listen here
  std::cin.ignore(1 << 20, EOF);
}
