#include "driver/RivalRequests.h"

#include <stdexcept>

#include "driver/Socket.h"

namespace sorvane::bench::rival_requests {
namespace {

const std::string kKey = "customers";
const std::string kChannel = "changes";
const std::string kMessage = "YES";
// Both replies are 128 bytes long.
const std::string kRedisValue(120, 'v');
const std::string kMemcachedValue(99, 'v');

std::string lengthOf(const std::string& text) { return std::to_string(text.size()); }

std::string word(const std::string& text) { return "$" + lengthOf(text) + "\r\n" + text + "\r\n"; }

std::string memcachedValue() {
  return "VALUE " + kKey + " 0 " + lengthOf(kMemcachedValue) + "\r\n" + kMemcachedValue + "\r\n";
}

}  // namespace

std::string name(Rival::Kind kind, int depth) {
  if (kind == Rival::Kind::redis) {
    return "redis GET";
  }
  return depth == 1 ? "memcached get" : "memcached multi-get";
}

void store(Rival::Kind kind, int port) {
  const Socket socket = connectTo(port);
  const bool redis = kind == Rival::Kind::redis;
  socket.sendAll(redis ? "*3\r\n" + word("SET") + word(kKey) + word(kRedisValue)
                       : "set " + kKey + " 0 0 " + lengthOf(kMemcachedValue) + "\r\n" +
                             kMemcachedValue + "\r\n");
  const std::string done = redis ? "+OK\r\n" : "STORED\r\n";
  if (socket.receive(done.size()) != done) {
    throw std::runtime_error("the other server did not store its value");
  }
}

Exchange get(Rival::Kind kind, int depth) {
  if (kind == Rival::Kind::redis) {
    return pipelined({"*2\r\n" + word("GET") + word(kKey), word(kRedisValue), 1}, depth);
  }
  Exchange result{"get", "", depth};
  for (int i = 0; i < depth; ++i) {
    result.request += " " + kKey;
    result.reply += memcachedValue();
  }
  result.request += "\r\n";
  result.reply += "END\r\n";
  return result;
}

Exchange subscription() {
  return {"*2\r\n" + word("SUBSCRIBE") + word(kChannel),
          "*3\r\n" + word("subscribe") + word(kChannel) + ":1\r\n", 1};
}

Exchange publication(int subscribers) {
  return {"*3\r\n" + word("PUBLISH") + word(kChannel) + word(kMessage),
          ":" + std::to_string(subscribers) + "\r\n", 1};
}

std::string message() { return "*3\r\n" + word("message") + word(kChannel) + word(kMessage); }

}  // namespace sorvane::bench::rival_requests
