#include "sorvctl/PortPicture.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <string_view>
#include <utility>

#include "sorvctl/Failure.h"

namespace sorvctl {

using sorvane::Message;

namespace {

constexpr std::size_t kMostInstanceBytes = 1024;
constexpr std::size_t kMostSequenceDigits = 64;
// The server cuts its replies by their length anyway: fewer questions bring the same.
constexpr const char* kMostOfReply = "10000";

// What the lists of a name server leave out, too.
constexpr std::array<std::string_view, 3> kNotListed{"sorvexec", "VN_nameserver", "VN_infoserver"};

[[noreturn]] void refuse(const std::string& what) {
  throw Failure(Status::saidNo, "the server's reply to portChanges is malformed: " + what);
}

bool isNumber(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

std::string requiredText(const Message& message, std::string_view key) {
  const auto text = message.text(key);
  if (!text) {
    refuse("it has no \"" + std::string(key) + "\"");
  }
  return std::string(*text);
}

bool requiredMark(const Message& message, std::string_view key) {
  const std::string text = requiredText(message, key);
  if (text != "YES" && text != "NO") {
    refuse("\"" + std::string(key) + "\" is neither YES nor NO");
  }
  return text == "YES";
}

/// Nothing when the text is no time.
std::optional<double> timeOf(std::string_view text) {
  double seconds = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  const bool isTime = error == std::errc() && end == text.data() + text.size();
  return isTime && std::isfinite(seconds) ? std::optional(seconds) : std::nullopt;
}

std::size_t bytesOf(const Database& database) {
  std::size_t bytes = database.port.name.size() + database.port.address.size();
  for (const DatabaseField& field : kDatabaseFields) {
    bytes += field.of(database).size();
  }
  return bytes;
}

}  // namespace

Message PortPicture::request() const {
  Message request{{"action", "portChanges"}, {"limit", kMostOfReply}};
  if (!instance_.empty()) {
    request.setText("instance", instance_).setText("since", sequence_);
  }
  return request;
}

void PortPicture::forget() {
  ports_.clear();
  bytes_ = 0;
  told_ = 0;
  instance_.clear();
  sequence_.clear();
}

PortPicture::Next PortPicture::take(const Message& reply) {
  if (!reply.contains("instance")) {
    return Next::lacking;
  }
  try {
    std::string instance = requiredText(reply, "instance");
    std::string sequence = requiredText(reply, "sequence");
    if (instance.size() > kMostInstanceBytes || !isNumber(sequence) ||
        sequence.size() > kMostSequenceDigits) {
      refuse("what to ask with next time makes no sense");
    }
    const bool more = requiredMark(reply, "more");
    if (requiredMark(reply, "restart")) {
      ports_.clear();
      bytes_ = 0;
    }
    const std::size_t toldBefore = told_;
    takeEntries(reply);
    if (more && told_ == toldBefore) {
      refuse("it promises more and tells nothing");
    }
    instance_ = std::move(instance);
    sequence_ = std::move(sequence);
    told_ = more ? told_ : 0;
    return more ? Next::askAgain : Next::complete;
  } catch (const Failure&) {
    forget();
    throw;
  }
}

void PortPicture::takeEntries(const Message& reply) {
  for (const sorvane::MessageEntry& entry : reply.entries()) {
    if (!isNumber(entry.key)) {
      continue;  // what the reply begins with
    }
    takeRow(entry.key, entry.value);
    if (++told_ > bounds_.names * kMostToldForEachKept + kMostToldBeyond) {
      throw Failure(Status::saidNo, "the server tells of changes without an end");
    }
  }
}

void PortPicture::takeRow(std::string_view key, std::string_view value) {
  Message row;
  if (const char* const fault = row.readBody(value)) {
    refuse("entry " + std::string(key) + ": " + fault);
  }
  const auto name = row.text("name");
  if (!name) {
    refuse("entry " + std::string(key) + " has no name");
  }
  const auto known = ports_.find(std::string(*name));
  if (known != ports_.end()) {
    bytes_ -= bytesOf(known->second);
  }
  if (row.text("gone") == "YES") {
    if (known != ports_.end()) {
      ports_.erase(known);
    }
    return;
  }
  Database database;
  database.port = {std::string(*name), textOf(row, "portNumber"), textOf(row, "portHost"),
                   textOf(row, "portHostAddress"), textOf(row, "portType")};
  database.state = row.text("portStatus").value_or("running");
  database.alert = textOf(row, "alertStatus");
  database.left = row.text("left") == "YES";
  database.alertTime = timeOf(row.text("alertStatusTimestamp").value_or(""));
  bytes_ += bytesOf(database);
  ports_.insert_or_assign(std::string(*name), std::move(database));
  if (ports_.size() > bounds_.names) {
    throw Failure(Status::saidNo,
                  "the server lists more than " + std::to_string(bounds_.names) + " databases");
  }
  if (bytes_ > bounds_.bytes) {
    throw Failure(Status::saidNo, "the names and texts that the server tells have more than " +
                                      std::to_string(bounds_.bytes) + " bytes");
  }
}

std::vector<Database> PortPicture::databases() const {
  std::vector<Database> all;
  all.reserve(ports_.size());
  for (const auto& [name, database] : ports_) {
    if (std::find(kNotListed.begin(), kNotListed.end(), name) == kNotListed.end()) {
      all.push_back(database);
    }
  }
  return all;
}

}  // namespace sorvctl
