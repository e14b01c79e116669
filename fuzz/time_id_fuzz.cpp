// Time IDs of a series file: the reader on any text, in each of the three
// units; what it reads within the calendar prints to a text that reads back
// to the same value.
#include <cmath>
#include <string>

#include "fuzz_support.h"
#include "runner/series_csv.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using esf::runner::TimeUnits;
  if (size > 256) return 0;
  const std::string text(esf::fuzz::text_of(data, size));
  for (const TimeUnits units : {TimeUnits::kDate, TimeUnits::kDatetime, TimeUnits::kNumber}) {
    double t = 0.0;
    if (!esf::runner::parse_time(text, units, &t)) continue;
    ESF_FUZZ_CHECK(std::isfinite(t));
    // Times outside the calendar are refused by the readers that use them.
    if (!esf::runner::in_calendar_range(t, units)) continue;
    const std::string printed = esf::runner::format_time(t, units);
    double back = 0.0;
    ESF_FUZZ_CHECK(esf::runner::parse_time(printed, units, &back));
    // Datetimes print their seconds to the millisecond.
    ESF_FUZZ_CHECK(units == TimeUnits::kDatetime ? std::fabs(back - t) <= 0.0005 + 1e-6 * std::fabs(t) : back == t);
  }
  return 0;
}
