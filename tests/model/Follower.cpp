#include "model/Follower.h"

#include <cstdio>
#include <cstdlib>

namespace sorvane::model {
namespace {

constexpr double kAlertLifetime = 3600.0;  // seconds

std::string secondsText(double time) {
  char text[400];
  std::snprintf(text, sizeof text, "%f", time);
  return text;
}

void put(Row& row, const char* key, const std::optional<std::string>& text) {
  if (text) {
    row[key] = *text;
  }
}

std::string textOf(const Message& reply, std::string_view key) {
  return std::string(reply.text(key).value_or("(none)"));
}

}  // namespace

Picture pictureOf(const State& state, double now) {
  Picture picture;
  for (const auto& [name, connection] : state.ports) {
    const Record& record = state.records.at(connection);
    Row& row = picture[name];
    put(row, "portNumber", record.number);
    put(row, "portHost", record.host);
    put(row, "portHostAddress", record.address);
    put(row, "portType", record.type);
    put(row, "portStatus", record.status);
    if (record.alert && now <= record.alertTime + kAlertLifetime) {
      put(row, "alertStatus", record.alert);
      row["alertStatusTimestamp"] = secondsText(record.alertTime);
    }
    const bool isOwn = connection < 0;
    if (!record.isConnected && !isOwn) {
      row["left"] = "YES";
    }
  }
  return picture;
}

Message Follower::question(const std::string& limit) const {
  Message question({{"action", "portChanges"}, {"limit", limit}});
  if (instance_) {
    question.setText("instance", *instance_);
    question.setText("since", *sequence_);
  }
  return question;
}

std::string Follower::takesIn(std::string_view body, std::size_t limit, bool mayRestart) {
  Message reply;
  if (const char* const fault = reply.readBody(body)) {
    return std::string("no dictionary: ") + fault + "\n";
  }
  constexpr const char* kHead[] = {"instance", "sequence", "more", "restart"};
  constexpr std::size_t kHeadSize = std::size(kHead);
  const auto& entries = reply.entries();
  for (std::size_t i = 0; i < kHeadSize; ++i) {
    if (i >= entries.size() || entries[i].key != kHead[i]) {
      return std::string("the reply has no ") + kHead[i] + " in its place\n";
    }
  }
  const bool isFirst = !instance_;
  const bool restarts = textOf(reply, "restart") == "YES";
  if (restarts ? !isFirst && !mayRestart : isFirst) {
    return restarts ? "a restart without need\n" : "the first reply is no restart\n";
  }
  if (restarts) {
    picture_.clear();
  }
  instance_ = textOf(reply, "instance");
  sequence_ = textOf(reply, "sequence");
  knowsAll_ = textOf(reply, "more") == "NO";
  const std::size_t names = entries.size() - kHeadSize;
  if (sequence_->size() > 64 || sequence_->find_first_not_of("0123456789") != std::string::npos) {
    return "the sequence is " + *sequence_ + "\n";
  }
  if (names > limit || (!knowsAll_ && names == 0)) {
    return std::to_string(names) + " names with a limit of " + std::to_string(limit) + "\n";
  }
  told_.clear();
  std::string fault;
  for (std::size_t i = 0; i < names; ++i) {
    fault += takesInName(entries[kHeadSize + i], std::to_string(i));
  }
  return fault;
}

std::string Follower::takesInName(const MessageEntry& entry, const std::string& place) {
  Message told;
  const char* const fault = told.readBody(entry.value);
  if (entry.key != place || fault != nullptr || told.entries().empty() ||
      told.entries().front().key != "name") {
    return "place " + place + " tells no name\n";
  }
  const std::string name = textOf(told, "name");
  if (told.contains("gone")) {
    picture_.erase(name);
    return told.entries().size() == 2 ? "" : "more is told of a name that is gone\n";
  }
  Row row;
  for (const MessageEntry& each : told.entries()) {
    row[std::string(each.key)] = textOf(told, each.key);
  }
  row.erase("name");
  picture_[name] = std::move(row);
  told_.push_back(name);
  return {};
}

Picture Follower::picture(double now) const {
  Picture picture = picture_;
  for (auto& [name, row] : picture) {
    const auto time = row.find("alertStatusTimestamp");
    if (time != row.end() && now > std::strtod(time->second.c_str(), nullptr) + kAlertLifetime) {
      row.erase(time);
      row.erase("alertStatus");
    }
  }
  return picture;
}

std::string shown(const Picture& picture) {
  std::string text;
  for (const auto& [name, row] : picture) {
    text += "  \"" + name + "\":";
    for (const auto& [key, value] : row) {
      text += " " + key + " \"" + value + "\"";
    }
    text += "\n";
  }
  return text;
}

}  // namespace sorvane::model
