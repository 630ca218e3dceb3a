// The time zone and the clock, as a test sets them.
#pragma once

#include <stdlib.h>
#include <time.h>

#include <cstring>
#include <optional>
#include <string>

#include "convert/Calendar.h"
#include "platform/TimeSource.h"

namespace sorvane::test {

/// Gives the calendar functions an offset for the life of the object, then puts the globals back.
class OffsetOfTest {
 public:
  explicit OffsetOfTest(int offset) : before_(gmtoffset), textBefore_(gmtstring) {
    initGMTOffset(offset);
  }
  ~OffsetOfTest() {
    gmtoffset = before_;
    std::strcpy(gmtstring, textBefore_.c_str());
  }
  OffsetOfTest(const OffsetOfTest&) = delete;
  OffsetOfTest& operator=(const OffsetOfTest&) = delete;

 private:
  std::int32_t before_;
  std::string textBefore_;
};

/// Moves this process to another time zone and stops its clock, for the life of the object.
class ClockOfTest {
 public:
  /// `zone` is a value of TZ; `unixSeconds` what the clock shows.
  ClockOfTest(const char* zone, long long unixSeconds) {
    if (const char* const before = getenv("TZ")) {
      zoneBefore_ = before;
    }
    setenv("TZ", zone, 1);
    tzset();
    instant_ = static_cast<double>(unixSeconds) - kReferenceDateUnixSeconds;
    setTimeSource([] { return instant_; });
  }
  ~ClockOfTest() {
    setTimeSource(nullptr);
    if (zoneBefore_) {
      setenv("TZ", zoneBefore_->c_str(), 1);
    } else {
      unsetenv("TZ");
    }
    tzset();
  }
  ClockOfTest(const ClockOfTest&) = delete;
  ClockOfTest& operator=(const ClockOfTest&) = delete;

 private:
  static inline double instant_ = 0;
  std::optional<std::string> zoneBefore_;
};

}  // namespace sorvane::test
