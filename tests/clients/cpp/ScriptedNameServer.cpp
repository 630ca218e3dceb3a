#include "clients/cpp/ScriptedNameServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "support/ScriptedPeer.h"
#include "support/WaitUntil.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

std::size_t number(std::string_view bytes) {
  std::size_t result = 0;
  for (const char byte : bytes) {
    result = result << 8 | static_cast<unsigned char>(byte);
  }
  return result;
}

RequestTexts textsOf(std::string_view body) {
  RequestTexts texts;
  while (body.size() >= 6) {
    const std::size_t key = number(body.substr(0, 2));
    const std::size_t value = number(body.substr(2, 4));
    const std::string_view text = body.substr(6 + key, value);
    texts[std::string(body.substr(6, key))] = text.substr(0, text.find('\0'));
    body.remove_prefix(6 + key + value);
  }
  return texts;
}

}  // namespace

ScriptedNameServer::ScriptedNameServer(Answer answer) : answer_(std::move(answer)) {
  listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (bind(listener_, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
      getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0 ||
      listen(listener_, 16) != 0) {
    throw std::runtime_error("no port for a name server");
  }
  port_ = ntohs(address.sin_port);
  accepting_ = std::thread([this] { accept(); });
}

ScriptedNameServer::~ScriptedNameServer() {
  {
    const std::lock_guard<std::mutex> hold(mutex_);
    ending_ = true;
    shutdown(listener_, SHUT_RDWR);
  }
  accepting_.join();
  hangUp();
  for (std::thread& thread : threads_) {
    thread.join();
  }
  close(listener_);
}

void ScriptedNameServer::answersBy(Answer answer) {
  const std::lock_guard<std::mutex> hold(mutex_);
  answer_ = std::move(answer);
}

void ScriptedNameServer::hangUp() {
  const std::lock_guard<std::mutex> hold(mutex_);
  for (const int socket : sockets_) {
    shutdown(socket, SHUT_RDWR);
  }
}

bool ScriptedNameServer::isAsked(const std::string& what, int times) {
  std::unique_lock<std::mutex> hold(mutex_);
  return asked_.wait_for(hold, kPatience, [&] { return counts_[what] >= times; });
}

std::size_t ScriptedNameServer::connections() {
  const std::lock_guard<std::mutex> hold(mutex_);
  return sockets_.size();
}

int ScriptedNameServer::timesAsked(const std::string& what) {
  const std::lock_guard<std::mutex> hold(mutex_);
  return counts_[what];
}

void ScriptedNameServer::accept() {
  while (true) {
    const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    const std::lock_guard<std::mutex> hold(mutex_);
    if (ending_ || socket < 0) {
      close(socket);
      return;
    }
    sockets_.push_back(socket);
    threads_.emplace_back([this, socket] { serve(socket); });
  }
}

void ScriptedNameServer::serve(int socket) {
  PeerConnection connection(socket);
  while (const auto body = connection.receiveRequest()) {
    const std::string reply = answer(textsOf(*body));
    if (reply.empty()) {
      connection.waitForClose();
      break;
    }
    connection.send(reply);
  }
  const std::lock_guard<std::mutex> hold(mutex_);
  std::erase(sockets_, socket);
  close(socket);
}

std::string ScriptedNameServer::answer(const RequestTexts& request) {
  const std::lock_guard<std::mutex> hold(mutex_);
  for (const auto& [key, text] : request) {
    ++counts_[key == "action" ? text : key];
  }
  asked_.notify_all();
  return answer_(request);
}

}  // namespace sorvane::test
