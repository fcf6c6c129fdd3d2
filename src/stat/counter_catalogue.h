// The fixed catalogue of the report: which collections exist, in report order, with their folder
// rules, counters, counter names and histogram limit tables. defineCounters() purges the statistic
// and rebuilds all 25 collections with zeroed counters; the store walk calls it at the start of
// every run. Call it from the thread that owns the statistic.
#pragma once

#include "stat/counter.h"
#include "stat/statistic.h"

void defineCounters(Statistic& statistic);

// The report name of a counter type ("Message count" ...); empty for a number outside the catalogue.
const char* counterName(Counter::Type type);
