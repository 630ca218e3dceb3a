#include "sorvctl/DatabaseWatch.h"

#include <algorithm>

namespace sorvctl {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds kLongestPause{60};
constexpr int kPausesOfReading = 10;
constexpr milliseconds kLongestWait = std::chrono::hours(1);
constexpr double kAlertLasts = 3600;
// 1 January 2001 00:00:00 GMT, where the times of the server begin, in seconds since 1970.
constexpr double kReferenceDate = 978307200;

double secondsSince1970() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace

std::optional<milliseconds> timeToLapse(const std::vector<Database>& databases, double now,
                                        milliseconds soonest) {
  using Seconds = std::chrono::duration<double>;
  std::optional<Seconds> first;
  for (const Database& each : databases) {
    if (!each.alert.empty()) {
      const Seconds left(each.alertTime ? *each.alertTime + kReferenceDate + kAlertLasts - now : 0);
      first = std::min(first.value_or(Seconds(kAlertLasts)),
                       std::clamp(left, Seconds(soonest), Seconds(kAlertLasts)));
    }
  }
  return first ? std::optional(std::chrono::ceil<milliseconds>(*first)) : std::nullopt;
}

DatabaseWatch::DatabaseWatch(Session& session, milliseconds interval, PictureBounds bounds,
                             milliseconds soonestLook)
    : session_(session), changes_(session, interval), reader_(bounds), soonestLook_(soonestLook) {}

std::optional<std::vector<Database>> DatabaseWatch::next(int wake) {
  while (Clock::now() < pauseEnd_) {
    if (awaitReadable(-1, wake, pauseEnd_) == Awaited::woken) {
      return std::nullopt;
    }
  }
  auto end = ChangeWait::End::timeOver;
  while (end == ChangeWait::End::timeOver) {
    const auto left =
        alertLapses_ ? std::chrono::ceil<milliseconds>(*alertLapses_ - Clock::now()) : kLongestWait;
    end = changes_.wait(std::max(left, milliseconds(0)), wake);
    if (end == ChangeWait::End::timeOver && alertLapses_) {
      reader_.forget();
      break;
    }
  }
  if (end == ChangeWait::End::woken) {
    return std::nullopt;
  }
  const Time begin = Clock::now();
  std::vector<Database> databases = reader_.read(session_);
  const Time now = Clock::now();
  const auto lapse = timeToLapse(databases, secondsSince1970(), soonestLook_);
  alertLapses_ = lapse ? std::optional(now + *lapse) : std::nullopt;
  pauseEnd_ = now + std::min<Clock::duration>(kLongestPause, (now - begin) * kPausesOfReading);
  return databases;
}

}  // namespace sorvctl
