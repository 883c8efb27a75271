// The real clock, held between two readings of the system's own.
#include "olk_utils/system_clock.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>

namespace {

int64_t system_milliseconds(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// Not the first millisecond of a second, in which a lost fraction would not show.
int64_t milliseconds_with_a_fraction(clockid_t clock) {
  int64_t now = 0;
  do {
    now = system_milliseconds(clock);
  } while (now % 1000 == 0);
  return now;
}

class SystemClock : public testing::Test {
 protected:
  ~SystemClock() override {
    unsetenv("TZ");
    tzset();
  }
  static void set_zone_unseen(const char* zone) { setenv("TZ", zone, 1); }
  static void set_zone(const char* zone) {
    set_zone_unseen(zone);
    tzset();
  }
};

// Milliseconds since the epoch that calendar and offset stand for.
int64_t epoch_milliseconds(const LocalTime& local) {
  tm calendar = local.calendar;
  const int64_t offset = calendar.tm_gmtoff;
  return (static_cast<int64_t>(timegm(&calendar)) - offset) * 1000 + local.milliseconds;
}

TEST_F(SystemClock, CurrentMillisecondsAreTheWallClocks) {
  const int64_t before = milliseconds_with_a_fraction(CLOCK_REALTIME);
  const auto now = static_cast<int64_t>(GetCurrentMilliTime());
  const int64_t after = system_milliseconds(CLOCK_REALTIME);
  EXPECT_GE(now, before);
  EXPECT_LE(now, after);
}

TEST_F(SystemClock, MonotonicTimeIsTheSystems) {
  const int64_t before = milliseconds_with_a_fraction(CLOCK_MONOTONIC);
  const timespec now = monotonic_now();
  const int64_t after = system_milliseconds(CLOCK_MONOTONIC);
  EXPECT_GE(elapsed_ms({}, now), before);
  EXPECT_LE(elapsed_ms({}, now), after);
}

TEST_F(SystemClock, LocalTimeIsTheWallClocksInItsZone) {
  set_zone("<-03>3");
  const int64_t before = milliseconds_with_a_fraction(CLOCK_REALTIME);
  const LocalTime now = local_time_now();
  const int64_t after = system_milliseconds(CLOCK_REALTIME);
  EXPECT_EQ(now.calendar.tm_gmtoff, -3 * 3600);
  EXPECT_GE(epoch_milliseconds(now), before);
  EXPECT_LE(epoch_milliseconds(now), after);
  EXPECT_GE(now.milliseconds, 0);
  EXPECT_LT(now.milliseconds, 1000);
}

TEST_F(SystemClock, ZoneThatTheHostChangedBetweenTwoCallsIsTakenIn) {
  set_zone("UTC0");
  EXPECT_EQ(local_time_in_current_zone().calendar.tm_gmtoff, 0);
  set_zone_unseen("<-03>3");
  const int64_t before = milliseconds_with_a_fraction(CLOCK_REALTIME);
  const LocalTime now = local_time_in_current_zone();
  const int64_t after = system_milliseconds(CLOCK_REALTIME);
  EXPECT_EQ(now.calendar.tm_gmtoff, -3 * 3600);
  EXPECT_GE(epoch_milliseconds(now), before);
  EXPECT_LE(epoch_milliseconds(now), after);
  set_zone_unseen("<+0530>-5:30");
  EXPECT_EQ(local_time_in_current_zone().calendar.tm_gmtoff, 5 * 3600 + 30 * 60);
}

}  // namespace
