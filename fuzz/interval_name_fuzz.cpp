// Interval names: the parser on any text; a name that parses prints to a
// text that parses back to the same interval, and the calendar routines
// answer on it without fault.
#include <cstring>
#include <memory>
#include <string>

#include "fuzz_support.h"
#include "intervals/interval.h"

namespace {

bool same_interval(const INTERVAL& a, const INTERVAL& b) {
  return a.units == b.units && a.intcode == b.intcode && a.intper == b.intper && a.shiftper == b.shiftper &&
         a.nweekday == b.nweekday && std::memcmp(a.weekend, b.weekend, sizeof a.weekend) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  esf::fuzz::connect_module();
  if (size > 64) return 0;
  // An exact-size copy, so that reading past the given length is caught.
  std::unique_ptr<tchar[]> text(new tchar[size]);
  if (size > 0) std::memcpy(text.get(), data, size);
  INTERVAL iv{};
  if (zintstr(text.get(), static_cast<int>(size), &iv) != 0) return 0;

  char printed[64];
  int len = sizeof printed;
  ESF_FUZZ_CHECK(zinti2s(printed, &len, &iv) == 0);
  ESF_FUZZ_CHECK(len > 0 && len <= static_cast<int>(sizeof printed));
  if (len <= 21) {
    INTERVAL back{};
    ESF_FUZZ_CHECK(zintstr(printed, len, &back) == 0);
    // DTOBS and DTNONE print without the datetime prefix they were read with.
    const bool units_dropped = iv.intcode < kIntDay && iv.units == kUnitsDatetime && iv.intcode != kIntSecond &&
                               iv.intcode != kIntMinute && iv.intcode != kIntHour;
    ESF_FUZZ_CHECK(units_dropped || same_interval(back, iv));
  }

  // Arithmetic at the ends of the calendar and in its middle.
  const double day = iv.units == kUnitsDatetime ? 86400.0 : 1.0;
  for (const double x : {0.0, kMinDate * day, kMaxDate * day, 12345.5 * day}) {
    for (const double n : {-1.0, 0.0, 1.0, 1000.0}) (void)zintnx2(&iv, x, n);
    (void)zintck2(&iv, x, 0.0);
  }
  return 0;
}
