// A client that is told what has changed. The input is a stream of frames, each the reply to a
// question of what has changed. What the client reads, keeps and tells must be what a plain reading
// of docs/protocol.md gives.
#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "client/Page.h"
#include "client/Picture.h"
#include "client/wire/Reply.h"
#include "support/ReferenceFrames.h"
#include "support/Require.h"

namespace {

using namespace sorvane::fuzz;
using sorvane::client::Change;
using sorvane::client::Entry;
using sorvane::client::detail::Page;
using sorvane::client::detail::Picture;
using sorvane::client::detail::Reply;

constexpr std::size_t kMostBytes = 8192;

/// What a client knows of a name: the texts of its row.
using Row = std::map<std::string, std::string>;

/// A reply, read a second time. Null when it is an error.
struct ReferencePage {
  bool more = false;
  bool restart = false;
  std::vector<Row> rows;
};

std::optional<Row> rowOf(const std::string& value) {
  const auto entries = readReferenceBody(value);
  if (!entries) {
    return std::nullopt;
  }
  Row row;
  for (const ReferenceEntry& each : *entries) {
    const std::string text = each.value.substr(0, each.value.find('\0'));
    if (!text.empty() && !textOf(each.value)) {
      return std::nullopt;
    }
    row[each.key] = text;
  }
  return row.contains("name") ? std::optional(row) : std::nullopt;
}

std::optional<ReferencePage> pageOf(const Entries& entries) {
  const auto textUnder = [&](const char* key) {
    const std::string* const value = find(entries, key);
    return value == nullptr ? std::nullopt : textOf(*value);
  };
  const auto sequence = textUnder("sequence");
  const auto more = textUnder("more");
  const auto restart = textUnder("restart");
  const std::string* const instance = find(entries, "instance");
  const auto isAnswer = [](const std::optional<std::string>& text) {
    return text == "YES" || text == "NO";
  };
  if (instance == nullptr || (!instance->empty() && !textOf(*instance)) || !sequence ||
      sequence->empty() || sequence->size() > 64 || !isAnswer(more) || !isAnswer(restart)) {
    return std::nullopt;
  }
  ReferencePage page{more == "YES", restart == "YES", {}};
  for (const ReferenceEntry& each : entries) {
    const bool isPlace =
        !each.key.empty() &&
        std::all_of(each.key.begin(), each.key.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (!isPlace) {
      continue;
    }
    const auto row = rowOf(each.value);
    if (each.key != std::to_string(page.rows.size()) || !row) {
      return std::nullopt;
    }
    page.rows.push_back(*row);
  }
  if (page.more && page.rows.empty()) {
    return std::nullopt;
  }
  return page;
}

/// The names that a client knows by what it was told: what was there, and what is told anew.
struct ReferencePicture {
  std::map<std::string, Row> known;
  std::map<std::string, bool> isOld;  // known, and not told since everything is told anew
  bool anew = false;

  void apply(const ReferencePage& page) {
    if (page.restart) {
      anew = true;
      for (const auto& each : known) isOld[each.first] = true;
    }
    for (const Row& row : page.rows) {
      const std::string& name = row.at("name");
      if (name == "VN_nameserver" || name == "VN_infoserver" || name == "sorvexec") {
        continue;
      }
      isOld.erase(name);
      known.erase(name);
      const auto gone = row.find("gone");
      if (gone == row.end() || gone->second != "YES") {
        known[name] = row;
      }
    }
    if (!page.more && anew) {
      for (const auto& each : isOld) known.erase(each.first);
      isOld.clear();
      anew = false;
    }
  }
};

void requireSame(const std::vector<Entry>& entries, const std::map<std::string, Row>& known) {
  require(entries.size() == known.size(), "the picture has the names that were told");
  auto expected = known.begin();
  for (const Entry& entry : entries) {
    Row row = expected->second;
    require(entry.name == expected->first, "the names are ordered");
    require(entry.host == row["portHost"] && entry.address == row["portHostAddress"] &&
                entry.type == row["portType"] && entry.state == row["portStatus"] &&
                entry.alert == row["alertStatus"] && entry.left == (row["left"] == "YES"),
            "an entry has the texts that were told");
    require(entry.number == 0 ||
                (entry.number <= 65535 && std::stoi(row["portNumber"]) == entry.number),
            "a number is that of a port");
    ++expected;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view stream(reinterpret_cast<const char*>(data), size);
  std::map<std::string, Entry> told;
  Picture picture(
      [&](const Change& change) {
        const bool isKnown = told.contains(change.entry.name);
        require(isKnown == (change.kind != Change::Kind::registered), "a new name was not known");
        require(change.kind != Change::Kind::changed || told[change.entry.name] != change.entry,
                "a change makes a difference");
        if (change.kind == Change::Kind::gone) {
          require(told[change.entry.name] == change.entry, "what is gone was told before");
          told.erase(change.entry.name);
        } else {
          told[change.entry.name] = change.entry;
        }
      },
      kMostBytes);
  ReferencePicture reference;
  while (true) {
    const ReferenceFrame frame = readReferenceFrame(stream, size);
    if (frame.kind != ReferenceFrame::Kind::dictionary &&
        frame.kind != ReferenceFrame::Kind::none) {
      break;
    }
    const std::string_view body = stream.substr(8, frame.bytes - 8);
    stream.remove_prefix(frame.bytes);
    auto reply = frame.kind == ReferenceFrame::Kind::none
                     ? std::optional(Reply())
                     : Reply::ofBody({body.begin(), body.end()});
    require(reply.has_value(), "a body that is one is read");
    const auto page = sorvane::client::detail::readPage(*reply);
    const auto expected = pageOf(frame.entries);
    require(static_cast<bool>(page) == expected.has_value(), "a page is read, and nothing else");
    if (!page) {
      continue;
    }
    if (!picture.apply(*page)) {
      break;  // more than is kept
    }
    require(picture.bytes() <= kMostBytes, "no more is kept than may be");
    reference.apply(*expected);
    requireSame(picture.entries(), reference.known);
    require(told.size() == reference.known.size(), "all that is known was told");
  }
  return 0;
}
