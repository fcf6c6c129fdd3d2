// Accumulates unsigned 64-bit samples into count, sum (wrapping) and maximum, and writes its own XML
// fragment of the statistics report. A value-only counter reports just its sample count.
// Not thread-safe: one walk feeds one statistic from one thread.
#pragma once

#include <ostream>
#include <string>

#include "stat/named.h"

class Counter : public Named {
 public:
  // What a counter measures; the key of a collection's counter map. The numbers are fixed: the
  // report lists counters in this order and the catalogue names each one.
  enum Type : unsigned int {
    MessageCount = 0,
    MessageSize = 1,
    MessageHeaderSize = 2,
    PlainTextBodySize = 3,
    HtmlBodySize = 4,
    RtfBodySize = 5,
    AttachmentSize = 6,
    OnlyPlainTextCount = 7,
    OnlyHtmlCount = 8,
    PlainTextAndRtfCount = 9,
    PlainTextAndHtmlCount = 10,
    PlainTextHtmlAndRtfCount = 11,
    SignedMessageCount = 12,
    EncryptedMessageCount = 13,
    SignedMessageSize = 14,
    EncryptedMessageSize = 15,
    DistributionListCount = 16,
    FolderCount = 17,
    FolderSize = 18,
    MessageCountPerFolder = 19,
    FolderCountPerUser = 20,
    FolderCountPerUserTemporary = 21,
    DomainCount = 22,
  };

  Counter(const std::string& name, bool valueOnly);
  virtual ~Counter() = default;
  Counter(const Counter&) = delete;
  Counter& operator=(const Counter&) = delete;

  virtual void add(unsigned long long value);
  virtual void report(std::ostream& out);

  // Clears count, sum and maximum; the name and the value-only flag stay.
  void reset();

  unsigned long long getCount() const { return count; }
  unsigned long long getSum() const { return sum; }
  unsigned long long getMax() const { return max; }
  // Not guarded against a zero count (gives NaN); the report prints "undef" for that case instead.
  float getAverage() const;

 protected:
  // The "<value>" to "<avg>" lines shared with the histogram's fragment.
  void reportAggregates(std::ostream& out) const;

 private:
  unsigned long long count = 0;
  unsigned long long sum = 0;
  unsigned long long max = 0;
  bool valueOnly;
};
