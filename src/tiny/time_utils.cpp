#include "tiny/time_utils.h"

#include <strings.h>
#include <sys/time.h>
#include <sys/times.h>
#include <unistd.h>

#include "tiny/vmutex.h"

namespace vorlane {
namespace tiny {

namespace {

const char* const kMonthNames[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
const char* const kDayNames[7] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};

VMutex& clockMutex() {
  static VMutex mutex;
  return mutex;
}

MsWrapExtender& clockState() {
  static MsWrapExtender state;
  return state;
}

}  // namespace

int64_t MsWrapExtender::extend(int32_t reading) {
  if (!started_) {
    // The tick count starts at an arbitrary point; a first reading that is negative as 32 bits
    // would make the clock negative, so it starts one wrap up and the clock stays non-negative.
    started_ = true;
    if (reading < 0) offset_ = int64_t(1) << 32;
  } else if (reading < last_) {
    offset_ += int64_t(1) << 32;
  }
  last_ = reading;
  return offset_ + static_cast<int64_t>(reading);
}

uint32_t millisec() { return static_cast<uint32_t>(millisec64()); }

uint64_t millisec64() {
  timeval tv;
  gettimeofday(&tv, nullptr);
  return static_cast<uint64_t>(tv.tv_sec) * 1000u + static_cast<uint64_t>(tv.tv_usec) / 1000u;
}

uint64_t getMs64() {
  VMutexGuard guard(clockMutex());
  tms unused;
  unsigned long long ticks = static_cast<unsigned long long>(times(&unused));
  long rate = sysconf(_SC_CLK_TCK);
  if (rate <= 0) rate = 100;
  unsigned long long ms = rate >= 1000 ? ticks / static_cast<unsigned long long>(rate / 1000)
                                       : ticks * static_cast<unsigned long long>(1000 / rate);
  return static_cast<uint64_t>(clockState().extend(static_cast<int32_t>(static_cast<uint32_t>(ms))));
}

void msleep(int ms) {
  if (ms <= 0) return;
  timespec ts;
  ts.tv_sec = ms / 1000;
  ts.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
  nanosleep(&ts, nullptr);
}

const char* getMonthName(int month) { return month >= 0 && month < 12 ? kMonthNames[month] : kMonthNames[0]; }

const char* getDayName(int day) { return day >= 0 && day < 7 ? kDayNames[day] : kDayNames[0]; }

int getMonthNum(const char* name) {
  if (!name) return 2147483647;
  for (int i = 0; i < 12; ++i) {
    if (strcasecmp(name, kMonthNames[i]) == 0) return i;
  }
  return 0;
}

void getLocalTime(tm* out) {
  time_t now = time(nullptr);
  localtime_r(&now, out);
}

char* v_asctime_r(const tm* t, char* buf) { return asctime_r(t, buf); }
char* v_ctime_r(const time_t* t, char* buf) { return ctime_r(t, buf); }
tm* v_gmtime_r(const time_t* t, tm* out) { return gmtime_r(t, out); }
tm* v_localtime_r(const time_t* t, tm* out) { return localtime_r(t, out); }

long timezoneOffset(long t) {
  time_t when = static_cast<time_t>(t);
  tm utc;
  tm local;
  if (!gmtime_r(&when, &utc) || !localtime_r(&when, &local)) return 0;
  long offset = (local.tm_hour - utc.tm_hour) * 60L + (local.tm_min - utc.tm_min);
  if (local.tm_year < utc.tm_year || (local.tm_year == utc.tm_year && local.tm_yday < utc.tm_yday)) {
    offset -= 1440;
  } else if (local.tm_year > utc.tm_year || (local.tm_year == utc.tm_year && local.tm_yday > utc.tm_yday)) {
    offset += 1440;
  }
  return offset;
}

}  // namespace tiny
}  // namespace vorlane
