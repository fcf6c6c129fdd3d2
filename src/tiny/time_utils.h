// Clock readings, sleeping, month and day names, re-entrant time conversions and the local
// time-zone offset. All functions are thread-safe; the monotonic millisecond clock is serialised by
// one process-wide mutex so that its 32-bit wrap detection sees readings in order.
#pragma once

#include <cstdint>
#include <ctime>

namespace vorlane {
namespace tiny {

// Wall-clock milliseconds (seconds * 1000 + microseconds / 1000), truncated to 32 bits.
uint32_t millisec();
// The same, 64 bits.
uint64_t millisec64();
// Monotonic milliseconds from the process's clock ticks (times()), extended past the 32-bit wrap.
uint64_t getMs64();
// One nanosleep of ms milliseconds; a signal ends it early.
void msleep(int ms);

// "Jan".."Dec" for 0..11, "Jan" for anything else.
const char* getMonthName(int month);
// "Sun".."Sat" for 0..6, "Sun" for anything else.
const char* getDayName(int day);
// Index of the month name, compared case-insensitively. A null name gives 2147483647; a name that
// matches nothing gives 0, the same as "Jan" (callers rely on the lenient default).
int getMonthNum(const char* name);

void getLocalTime(tm* out);
char* v_asctime_r(const tm* t, char* buf);
char* v_ctime_r(const time_t* t, char* buf);
tm* v_gmtime_r(const time_t* t, tm* out);
tm* v_localtime_r(const time_t* t, tm* out);

// Minutes east of UTC at time t in the local zone; 0 when a conversion fails.
long timezoneOffset(long t);

// Extends signed 32-bit millisecond readings to 64 bits: a reading smaller than the previous one is
// taken as a wrap and adds 2^32. Not thread-safe by itself; getMs64 serialises its instance.
class MsWrapExtender {
 public:
  MsWrapExtender() : started_(false), last_(0), offset_(0) {}
  int64_t extend(int32_t reading);

 private:
  bool started_;
  int32_t last_;
  int64_t offset_;
};

}  // namespace tiny
}  // namespace vorlane
