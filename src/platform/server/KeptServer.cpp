#include "platform/server/KeptServer.h"

#include <algorithm>
#include <limits>
#include <memory>

#include "platform/KeptForm.h"

namespace sorvane {
namespace {

using std::chrono::milliseconds;
using Phase = KeptConnection::Phase;

constexpr milliseconds kLongestDeadline{std::numeric_limits<std::int32_t>::max()};
// Each of their values takes one byte at least.
constexpr std::size_t kLeastConnectionBytes = 8;
constexpr std::size_t kLeastShareBytes = 2;

void require(bool condition, const char* fault) {
  if (!condition) {
    throw KeptFault(fault);
  }
}

void writeTime(KeptWriter& writer, milliseconds time, milliseconds most) {
  writer.number(static_cast<std::uint64_t>(std::clamp(time, milliseconds(0), most).count()));
}

milliseconds readTime(KeptReader& reader, milliseconds most) {
  return milliseconds(reader.number(static_cast<std::uint64_t>(most.count())));
}

using Texts = std::vector<std::shared_ptr<const std::string>>;

std::shared_ptr<const std::string> readText(KeptReader& reader, Texts& texts) {
  const auto number = static_cast<std::size_t>(reader.number(texts.size()));
  if (number == texts.size()) {
    texts.push_back(std::make_shared<const std::string>(reader.text()));
  }
  return texts[number];
}

KeptReplies readReplies(KeptReader& reader, Texts& texts) {
  KeptReplies replies;
  replies.own = reader.text();
  const std::size_t shares = reader.count(kLeastShareBytes);
  replies.shared.reserve(shares);
  std::size_t before = 0;
  for (std::size_t i = 0; i < shares; ++i) {
    const auto place = static_cast<std::size_t>(reader.number(replies.own.size()));
    require(place >= before, "what was kept has the texts of a reply out of order");
    before = place;
    replies.shared.push_back({place, readText(reader, texts)});
  }
  if (shares > 0 && replies.shared.front().place == 0) {
    replies.sentOfFirst =
        static_cast<std::size_t>(reader.number(replies.shared.front().text->size()));
  }
  return replies;
}

/// Tells whether a connection can be in its phase with what it has.
bool canBe(const KeptConnection& each) {
  const bool hasInput = !each.input.empty();
  const bool hasReplies = !each.replies.empty();
  const bool hasDeadline = each.deadline.has_value();
  if (each.isRefused && hasInput) {
    return false;
  }
  switch (each.phase) {
    case Phase::reading:
      return !each.isRefused && !each.isEnded && !hasReplies && hasDeadline == hasInput;
    case Phase::sending:
      return !each.isEnded && hasDeadline == hasReplies;
    case Phase::holding:
      return !each.isRefused && !each.isEnded && !hasReplies && (hasInput || !hasDeadline);
    case Phase::lingering:
      return each.isRefused && each.isEnded && !hasReplies && hasDeadline;
  }
  return false;
}

KeptConnection readConnection(KeptReader& reader, Texts& texts) {
  KeptConnection each;
  each.descriptor = reader.descriptor();
  each.phase = static_cast<Phase>(reader.number(static_cast<std::uint64_t>(Phase::lingering)));
  each.isRefused = reader.flag();
  each.isEnded = reader.flag();
  each.input = reader.text();
  each.replies = readReplies(reader, texts);
  if (reader.flag()) {
    each.deadline = readTime(reader, kLongestDeadline);
  }
  if (each.phase == Phase::holding) {
    each.holdingTime = readTime(reader, Reply::kLongestHold);
  }
  require(canBe(each), "what was kept has a connection that cannot be");
  return each;
}

void requireDescriptorsOnce(const KeptServer& kept) {
  std::vector<int> all{kept.listener};
  all.reserve(kept.connections.size() + 1);
  for (const KeptConnection& each : kept.connections) {
    all.push_back(each.descriptor);
  }
  std::sort(all.begin(), all.end());
  require(std::adjacent_find(all.begin(), all.end()) == all.end(),
          "what was kept has a descriptor twice");
}

}  // namespace

KeptConnectionWriter::KeptConnectionWriter(KeptWriter& writer, int listener,
                                           std::size_t connections)
    : writer_(writer) {
  writer.descriptor(listener);
  writer.number(connections);
}

// A structured binding names all members: a further one does not compile until somebody has decided
// what becomes of it.
void KeptConnectionWriter::write(const KeptConnection& connection) {
  const auto& [descriptor, phase, isRefused, isEnded, input, replies, deadline, holdingTime] =
      connection;
  writer_.descriptor(descriptor);
  writer_.number(static_cast<std::uint64_t>(phase));
  writer_.flag(isRefused);
  writer_.flag(isEnded);
  writer_.text(input);
  write(replies);
  writer_.flag(deadline.has_value());
  if (deadline) {
    writeTime(writer_, *deadline, kLongestDeadline);
  }
  if (phase == Phase::holding) {
    writeTime(writer_, holdingTime, Reply::kLongestHold);
  }
}

void KeptConnectionWriter::write(const KeptReplies& replies) {
  const auto& [own, shared, sentOfFirst] = replies;
  writer_.text(own);
  writer_.number(shared.size());
  for (const ReplyBuffer::SharedText& each : shared) {
    writer_.number(each.place);
    const auto [place, isNew] = numbers_.try_emplace(each.text.get(), numbers_.size());
    writer_.number(place->second);
    if (isNew) {
      writer_.text(*each.text);
    }
  }
  if (!shared.empty() && shared.front().place == 0) {
    writer_.number(sentOfFirst);
  }
}

KeptServer readKeptServer(KeptReader& reader) {
  KeptServer kept;
  kept.listener = reader.descriptor();
  const std::size_t connections = reader.count(kLeastConnectionBytes);
  kept.connections.reserve(connections);
  Texts texts;
  for (std::size_t i = 0; i < connections; ++i) {
    kept.connections.push_back(readConnection(reader, texts));
  }
  requireDescriptorsOnce(kept);
  return kept;
}

}  // namespace sorvane
