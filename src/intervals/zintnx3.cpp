// Advancing with alignment: the begin, middle or end of the interval that
// zintnx2 lands in, or the date at the same place within it as the input
// date holds within its own interval ("S"), clipped to the interval's end
// when that place doesn't exist (31 January moved to February).

#include <cmath>
#include <cstring>

#include "host/host_dates.h"
#include "intervals/calendar_arith.h"
#include "intervals/date_runs.h"
#include "intervals/interval.h"
#include "primitives/primitives.h"

namespace {

bool is_minus_infinity(double d) { return esf::missing_kind(d) == esf::missing_kind(esf::missing_letter('M')); }

double custom_end(const INTERVAL& iv, double x, double n) {
  return calendar::with_custom_record(iv, [&](INTERVALX* ix) { return customINTNXE(ix, x, n); });
}

// The one-day interval that a clipped "S" result steps back by: DAY, or the
// working day of a WEEKDAY sub-interval with its weekend; DT when the
// interval takes datetime values.
int parse_one_day(const INTERVAL& iv, const INTERVAL& sub, INTERVAL* day) {
  char text[24] = {};  // "DTWEEKDAY", seven weekend digits, "W", NUL
  std::size_t len = 0;
  const auto append = [&](const char* part) {
    const std::size_t n = std::strlen(part);
    std::memcpy(text + len, part, n);
    len += n;
  };
  if (iv.units == kUnitsDatetime) append("DT");
  if (sub.intcode == kIntWeekday) {
    append("WEEKDAY");
    if (!calendar::is_default_weekend(sub)) {
      for (int w = 0; w < 7; ++w) {
        if (sub.weekend[w] != 0) text[len++] = static_cast<char>('1' + w);
      }
      text[len++] = 'W';
    }
  } else {
    append("DAY");
  }
  text[len] = '\0';
  return zintstr(text, -1, day);
}

// Same alignment: the place of inptDate within its interval, carried to
// the interval `begin` opens.
double same_place(INTERVAL* istr, double inptDate, double n, double begin, INTERVAL* sub_intrvl) {
  INTERVAL shifted{};
  INTERVAL* sub = &shifted;
  if (sub_intrvl == nullptr) {
    zintshft(istr, &shifted);
  } else {
    // A caller that keeps the record pays for the sub-interval only once.
    if (sub_intrvl->intcode == 0) zintshft(istr, sub_intrvl);
    sub = sub_intrvl;
  }

  const double own_begin = zintnx2(istr, inptDate, 0.0);
  const double du = zintck2(sub, own_begin, inptDate);  // sub-intervals into its interval
  if (esf::is_missing(own_begin) || esf::is_missing(du)) return esf::kMissing;
  const double sub_begin = zintnx2(sub, own_begin, du);
  if (esf::is_missing(sub_begin)) return esf::kMissing;
  const double dp = inptDate - sub_begin;  // how far into that sub-interval

  const double next = std::fmin(zintnx2(istr, inptDate, n + 1.0), zintnx2(sub, begin, du + 1.0));
  const double target = zintnx2(sub, begin, du);
  if (esf::is_missing(next) || esf::is_missing(target)) return esf::kMissing;
  const double result = target + dp;
  if (result < next) return result;

  // The place doesn't exist in the target interval: clip to its last day.
  if (sub->intcode < kIntFirstDate) return next - 1.0;
  INTERVAL one_day{};
  if (parse_one_day(*istr, *sub, &one_day) != 0) return esf::kMissing;
  double clipped = zintnx2(&one_day, next, -1.0);
  if (esf::is_missing(clipped)) return clipped;
  if (istr->units == kUnitsDatetime) clipped += ztimprt(inptDate);
  return clipped;
}

}  // namespace

extern "C" double zintnx3(struct INTERVAL* istr, double inptDate, double n, tchar* align, struct INTERVAL* sub_intrvl) {
  if (istr == nullptr || esf::is_missing(n)) return esf::kMissing;
  const int code = istr->intcode;
  const bool custom = code >= kIntCustom;
  const char alignment = align != nullptr ? align[0] : 'B';  // only the first character counts

  const double begin = zintnx2(istr, inptDate, n);
  if (esf::is_missing(begin)) {
    if (custom && is_minus_infinity(begin)) {
      // The period before a custom table has a begin of minus infinity but
      // an end; its middle doesn't exist.
      if (alignment == 'M') return esf::kMissing;
    } else if (alignment != 'E') {
      return begin;
    }
  }

  switch (alignment) {
    case 'B':
      return begin;
    case 'E': {
      if (custom) return custom_end(*istr, inptDate, n);
      const double next = zintnx2(istr, inptDate, n + 1.0);
      return esf::is_missing(next) ? next : next - 1.0;
    }
    case 'M': {
      if (custom) {
        const double end = custom_end(*istr, inptDate, n);
        if (esf::is_missing(end)) return end;
        return std::floor((end + begin) * 0.5);
      }
      const double next = zintnx2(istr, begin, 1.0);
      if (esf::is_missing(next)) return next;
      return std::floor((next + begin - 1.0) * 0.5);
    }
    case 'S':
      if (is_reserved_intcode(code) || custom) return begin;
      return same_place(istr, inptDate, n, begin, sub_intrvl);
    default:
      return begin;
  }
}

void calendar::aligned_run(INTERVAL* iv, double x, long first, long count, tchar* align, double* out) noexcept {
  const char alignment = align != nullptr ? align[0] : 'B';
  if (iv != nullptr && count > 0 && alignment != 'S' && advance_run(*iv, x, first, count, out)) {
    if (alignment != 'E' && alignment != 'M') return;
    // The begin of the interval after the last, then each end or middle
    // from its begin and the next one, in place.
    double after = 0.0;
    if (advance_run(*iv, x, first + count, 1, &after)) {
      for (long k = 0; k < count; ++k) {
        const double begin = out[k];
        const double next = k + 1 < count ? out[k + 1] : after;
        if (alignment == 'E') {
          out[k] = esf::is_missing(next) ? next : next - 1.0;
        } else if (!esf::is_missing(begin)) {
          out[k] = esf::is_missing(next) ? next : std::floor((next + begin - 1.0) * 0.5);
        }
      }
      return;
    }
  }
  for (long k = 0; k < count; ++k) out[k] = zintnx3(iv, x, static_cast<double>(first + k), align, nullptr);
}
