#include "scale/LoadedServer.h"

#include <optional>
#include <stdexcept>

namespace sorvane::bench {

Request::Request(std::initializer_list<std::pair<std::string_view, std::string_view>> texts)
    : body_(Message(texts).body()), numberAt_(body_.find(std::string(kDigits, '0'))) {}

void Request::setNumber(std::size_t number) {
  for (std::size_t digit = kDigits; digit > 0; --digit) {
    body_[numberAt_ + digit - 1] = static_cast<char>('0' + number % 10);
    number /= 10;
  }
}

const Message& Request::message() {
  if (const char* const fault = message_.readBody(body_)) {
    throw std::logic_error(fault);
  }
  return message_;
}

LoadedServer::LoadedServer(std::size_t names, std::size_t watchers)
    : newPort_({{"newPort", ""},
                {"portName", "database0000000"},
                {"portHost", "host7"},
                {"portHostAddress", "192.0.2.10"},
                {"portType", "sorvane"}}),
      acceptPort_({{"acceptPort", ""}}),
      watch_({{"action", "watchPortChanges"}}) {
  for (std::size_t number = 0; number < names; ++number) {
    ports_.push_back(newPeer());
    registerName(*ports_.back(), number);
  }
  for (std::size_t i = 0; i < watchers; ++i) {
    watchers_.push_back(newPeer());
    ask(*watchers_.back(), watch_);
  }
}

LoadedServer::~LoadedServer() {
  for (const auto& peer : ports_) {
    close(*peer);
  }
  for (const auto& peer : watchers_) {
    close(*peer);
  }
}

std::unique_ptr<Peer> LoadedServer::newPeer() {
  auto peer = std::make_unique<Peer>();
  open(*peer);
  return peer;
}

std::string_view LoadedServer::ask(Peer& sender, Request& request) {
  reply_.clear();
  sender.setReplyBuffer(&reply_);
  const Message& message = request.message();
  std::optional<Reply> atOnce;
  {
    Turn turn;
    atOnce = controller_.deliverWithoutWaiting(message, sender, turn);
  }
  const Reply reply = atOnce ? *atOnce : controller_.deliverCommunication(message, sender);
  if (reply.kind() == Reply::Kind::none) {
    throw std::runtime_error("no reply to " + message.description());
  }
  return reply.kind() == Reply::Kind::request ? message.body() : reply_.own().view();
}

std::string LoadedServer::wholeReply(Peer& sender, Request& request) {
  ask(sender, request);
  std::string reply;
  reply_.forEachPiece([&](std::string_view piece) { reply += piece; });
  return reply;
}

void LoadedServer::registerName(Peer& peer, std::size_t number) {
  newPort_.setNumber(number);
  ask(peer, newPort_);
  ask(peer, acceptPort_);
}

}  // namespace sorvane::bench
