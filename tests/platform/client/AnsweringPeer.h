// A server that replies the same to every request.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "platform/Settings.h"
#include "support/ScriptedPeer.h"
#include "support/WireBytes.h"

namespace sorvane::test {

/// Replies to every request with the same frame, and keeps the requests.
class AnsweringPeer {
 public:
  explicit AnsweringPeer(std::string answer, const char* address = kPeerAddress)
      : peer_(
            [this, answer = std::move(answer)](PeerConnection& client) {
              while (auto request = client.receiveRequest()) {
                {
                  const std::lock_guard<std::mutex> hold(mutex_);
                  requests_.push_back(*request);
                }
                client.send(answer);
              }
            },
            address) {}

  [[nodiscard]] int port() const { return peer_.port(); }
  [[nodiscard]] int connections() const { return peer_.connections(); }
  [[nodiscard]] std::vector<std::string> requests() {
    const std::lock_guard<std::mutex> hold(mutex_);
    return requests_;
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> requests_;
  ScriptedPeer peer_;
};

[[nodiscard]] inline std::string emptyDictionary() { return frameOfBody(""); }

/// Makes the framework's base port that of a peer.
inline void useBasePort(int port) {
  Settings settings;
  settings.basePort = port;
  Settings::replaceForTest(settings);
}

}  // namespace sorvane::test
