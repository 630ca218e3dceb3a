#include "platform/client/FakeResolver.h"

#include <dlfcn.h>
#include <netdb.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <set>

namespace sorvane::test {

namespace {

using Resolver = int (*)(const char*, const char*, const addrinfo*, addrinfo**);

struct Names {
  std::mutex mutex;
  std::condition_variable changed;
  std::map<std::string, std::vector<std::string>> known;
  std::set<std::string> hanging;
};

// Never destroyed: a resolving thread may outlive the tests.
Names& names() {
  static auto* const all = new Names;
  return *all;
}

/// The addresses to answer for a name, once it does not hang; nothing for a name of the system's.
std::optional<std::vector<std::string>> answerFor(const std::string& name) {
  Names& all = names();
  std::unique_lock<std::mutex> hold(all.mutex);
  all.changed.wait(hold, [&] { return !all.hanging.contains(name); });
  const auto known = all.known.find(name);
  return known == all.known.end() ? std::nullopt : std::optional(known->second);
}

int answer(Resolver resolve, const std::vector<std::string>& addresses, const char* service,
           const addrinfo* hints, addrinfo** result) {
  addrinfo** end = result;
  *end = nullptr;
  for (const std::string& address : addresses) {
    if (const int status = resolve(address.c_str(), service, hints, end); status != 0) {
      return status;
    }
    while (*end != nullptr) {
      end = &(*end)->ai_next;
    }
  }
  return *result == nullptr ? EAI_NONAME : 0;
}

}  // namespace

void resolveAs(const std::string& name, std::vector<std::string> addresses) {
  const std::lock_guard<std::mutex> hold(names().mutex);
  names().known[name] = std::move(addresses);
}

HangingName::HangingName(std::string name) : name_(std::move(name)) {
  const std::lock_guard<std::mutex> hold(names().mutex);
  names().hanging.insert(name_);
  names().known[name_] = {};
}

HangingName::~HangingName() {
  const std::lock_guard<std::mutex> hold(names().mutex);
  names().hanging.erase(name_);
  names().changed.notify_all();
}

}  // namespace sorvane::test

// Takes the place of the C library's own in this program.
extern "C" int getaddrinfo(const char* node, const char* service, const addrinfo* hints,
                           addrinfo** result) noexcept(false) {
  using namespace sorvane::test;
  static const auto resolve = reinterpret_cast<Resolver>(dlsym(RTLD_NEXT, "getaddrinfo"));
  const bool numeric = hints != nullptr && (hints->ai_flags & AI_NUMERICHOST) != 0;
  if (node != nullptr && !numeric) {
    if (const auto addresses = answerFor(node)) {
      return answer(resolve, *addresses, service, hints, result);
    }
  }
  return resolve(node, service, hints, result);
}
