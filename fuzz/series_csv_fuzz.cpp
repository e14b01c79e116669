// Series files: the CSV reader on any bytes, then the placing of what it
// read on a calendar. The first byte picks the interval; every refusal must
// be a CsvError.
#include <cmath>
#include <sstream>
#include <string>

#include "fuzz_support.h"
#include "intervals/interval.h"
#include "primitives/primitives.h"
#include "runner/series_csv.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  esf::fuzz::connect_module();
  if (size < 1) return 0;
  static const char* const kIntervals[] = {"MONTH", "DAY", "DTSECOND", "OBS", "WEEKDAY", "QTR", "DTHOUR", "NONE"};
  INTERVAL iv{};
  std::string name = kIntervals[data[0] % 8];
  if (zintstr(name.data(), static_cast<int>(name.size()), &iv) != 0) std::abort();
  std::istringstream in(std::string(esf::fuzz::text_of(data + 1, size - 1)));
  try {
    const esf::runner::CsvSeries series =
        esf::runner::read_series_csv(in, "fuzz.csv", "", "", esf::runner::time_units_of(iv.units));
    ESF_FUZZ_CHECK(!series.rows.empty());
    esf::runner::Calendar calendar;
    calendar.period_start = [&iv](double t) { return zintnx2(&iv, t, 0.0); };
    calendar.count = [&iv](double from, double to) { return zintck2(&iv, from, to); };
    calendar.is_missing = [](double v) { return esf::is_missing(v) || std::isnan(v); };
    const esf::runner::PlacedSeries placed = esf::runner::place_series(series, calendar);
    ESF_FUZZ_CHECK(!placed.values.empty() && placed.values.size() == placed.lines.size());
  } catch (const esf::runner::CsvError&) {
  }
  return 0;
}
