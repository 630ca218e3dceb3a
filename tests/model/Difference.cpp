#include "model/Difference.h"

#include <algorithm>

#include "platform/Message.h"

namespace sorvane::model {
namespace {

std::string nameOf(const std::string& element) { return element.substr(0, element.find(':')); }

/// The names in the second list come in the first one in the same order.
bool haveOneOrder(const List& states, const List& alerts) {
  auto at = states.begin();
  for (const std::string& alert : alerts) {
    at = std::find_if(at, states.end(),
                      [&](const std::string& state) { return nameOf(state) == nameOf(alert); });
    if (at == states.end()) {
      return false;
    }
    ++at;
  }
  return true;
}

bool listsFit(const Texts& expected, const Texts& real) {
  return expected.size() == 2 && real.size() == 2 && real[0].first == "result" &&
         real[1].first == "alerts" && joined(sortedList(real[0].second)) == expected[0].second &&
         joined(sortedList(real[1].second)) == expected[1].second &&
         haveOneOrder(elementsOf(real[0].second), elementsOf(real[1].second));
}

}  // namespace

Reply dictionaryOf(std::string_view body) {
  Reply reply{.kind = Reply::Kind::dictionary};
  Message message;
  if (const char* const fault = message.readBody(body)) {
    reply.texts.emplace_back("no dictionary", fault);
  }
  for (const MessageEntry& entry : message.entries()) {
    const bool isText = entry.value.find('\0') == entry.value.size() - 1;
    reply.texts.emplace_back(entry.key, isText ? entry.value.substr(0, entry.value.size() - 1)
                                               : "(bytes that are no text)");
  }
  return reply;
}

bool fits(const Reply& expected, const Reply& real) {
  return expected.kind == real.kind &&
         (expected.texts == real.texts ||
          (expected.hasLists && listsFit(expected.texts, real.texts)));
}

}  // namespace sorvane::model
