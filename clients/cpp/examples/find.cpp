// Prints where a database that the name server of this machine knows is reached.
#include <sorvane/client.h>

#include <cstdlib>
#include <iostream>

using namespace sorvane::client;

int main(int count, char** words) {
  NameServer server;
  if (count > 2) server.port = static_cast<std::uint16_t>(std::atoi(words[2]));
  auto client = Client::connect(server);
  if (!client) {
    std::cerr << client.error().reason << "\n";
    return 3;
  }
  const auto database = client->find(count > 1 ? words[1] : "db1");
  if (!database) {
    std::cerr << database.error().reason << "\n";
    return 1;
  }
  std::cout << client->reachableHost(*database) << " " << database->number << "\n";
}
