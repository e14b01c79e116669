// Default output formats of intervals: the host format by which a time ID of
// an interval is printed ("2001Q3" for QTR, "2001" for YEAR), with two
// widths: width1 to use, and a smaller width2 that still shows the value.
//
//   zintfmt  the format of an interval
//   zintfmm  the same for one time ID: a small value of a time interval is a
//            time of day
//   zintfmp  the same for a range of time IDs of a time interval that counts
//            from 0 (an elapsed time)
//   zintfmd  the same for the duration of one interval
//
// The routines always write something and return nothing; a null record
// gives "D". Names are written without a terminator.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "host/host_ctype.h"
#include "intervals/interval.h"
#include "primitives/primitives.h"

namespace {

// A format name and its two widths.
struct FormatChoice {
  const char* name;
  short width1;
  short width2;
};

void write_format(const FormatChoice& f, char* fmtname, short* namelen, short* width1, short* width2) {
  const auto length = static_cast<short>(std::strlen(f.name));
  std::memcpy(fmtname, f.name, static_cast<size_t>(length));
  *namelen = length;
  *width1 = f.width1;
  *width2 = f.width2;
}

// The first name for date units, the DT form for any other units.
FormatChoice by_units(char units, const char* date_name, const char* datetime_name, short w1, short w2) {
  return FormatChoice{units == kUnitsDate ? date_name : datetime_name, w1, w2};
}

FormatChoice builtin_format(const INTERVAL& istr) {
  if (istr.units == kUnitsObs || istr.units == kUnitsNone) return {"F", 6, 4};
  const bool shifted = istr.shiftper != 0;
  const char units = istr.units;
  switch (istr.intcode) {
    case kIntSecond:
      return {"DATETIME", 16, 16};
    case kIntMinute:
      return shifted ? FormatChoice{"DATETIME", 16, 16} : FormatChoice{"DATETIME", 13, 13};
    case kIntHour:
      return shifted ? FormatChoice{"DATETIME", 13, 13} : FormatChoice{"DATETIME", 10, 10};
    case kIntDay:
    case kIntWeekday:
    case kIntTenday:
    case kIntSemimonth:
      return by_units(units, "DATE", "DTDATE", 9, 7);
    case kIntWeek:
      return by_units(units, "WEEKDATX", "DTWKDATX", 17, 15);
    case kIntWeekv:
    case kIntR445Mon:
    case kIntR454Mon:
    case kIntR544Mon:
    case kIntR445Qtr:
    case kIntR454Qtr:
    case kIntR544Qtr:
    case kIntR445Yr:
    case kIntR454Yr:
    case kIntR544Yr:
    case kIntYearv:
      return by_units(units, "WEEKV", "DTWEEKV", 9, 7);
    case kIntMonth:
    case kIntSemiyear:
      return by_units(units, "MONYY", "DTMONYY", 7, 5);
    case kIntQtr:
      return shifted ? by_units(units, "MONYY", "DTMONYY", 7, 5) : by_units(units, "YYQC", "DTYYQC", 6, 4);
    case kIntYear:
      return shifted ? by_units(units, "MONYY", "DTMONYY", 7, 5) : by_units(units, "YEAR", "DTYEAR", 4, 2);
    default:
      return units == kUnitsDate ? FormatChoice{"DATE", 9, 7} : FormatChoice{"DATETIME", 16, 16};
  }
}

// A custom interval takes the format of its table. When the full name isn't
// known to the table, the name may carry a multiplier or shift: try again
// without its trailing digits and ".".
void custom_format(const INTERVAL& istr, char* fmtname, short* namelen, short* width1, short* width2) {
  INTERVALX intervalx{};
  static_cast<INTERVAL&>(intervalx) = istr;
  if (customINTFMT(&intervalx, fmtname, namelen, width1, width2) != 0) {
    int length = intervalx.tokenlen;
    while (length > 0 && (host_is_digit(intervalx.token[length - 1]) || intervalx.token[length - 1] == '.')) {
      --length;
    }
    if (length > 0) {
      intervalx.tokenlen = static_cast<short>(length);
      customINTFMT(&intervalx, fmtname, namelen, width1, width2);
      intervalx.tokenlen = istr.tokenlen;
    }
  }
  if (intervalx.cinfo != nullptr) zcintcReleaseRef(intervalx.cinfo);
}

bool is_time_code(int code) { return code == kIntSecond || code == kIntMinute || code == kIntHour; }

// Units that make a time interval show times rather than observation counts.
bool has_time_units(const INTERVAL& istr) { return istr.units != kUnitsObs && istr.units != kUnitsNone; }

// A name spelled with the prefix DT keeps its datetime format.
bool spelled_with_dt(const INTERVAL& istr) { return istr.token[0] == 'D' || istr.token[0] == 'd'; }

// The largest time of day (in seconds) that a value of the interval can show.
double day_span(const INTERVAL& istr) { return istr.shiftper + istr.intper * 86400.0; }

// floor(log10(v)) as the formats compute it, 0 for v not above 0.
double decimal_exponent(double v) { return v > 0 ? std::floor(std::log(v) / 2.302585092994046) : 0; }

short capped_width(double w) { return static_cast<short>(std::min(w, 20.0)); }

}  // namespace

extern "C" void zintfmt(INTERVAL* istr, char* fmtname, short* namelen, short* width1, short* width2) {
  if (istr == nullptr || istr->intcode == kIntNone) {
    write_format({"D", 9, 7}, fmtname, namelen, width1, width2);
    return;
  }
  if (istr->intcode == kIntCustom && istr->units != kUnitsObs && istr->units != kUnitsNone) {
    custom_format(*istr, fmtname, namelen, width1, width2);
    return;
  }
  write_format(builtin_format(*istr), fmtname, namelen, width1, width2);
}

extern "C" void zintfmm(INTERVAL* istr, double idval, char* fmtname, short* namelen, short* width1, short* width2) {
  if (istr != nullptr && istr->intcode != kIntNone && !wzmis(idval) && has_time_units(*istr) &&
      is_time_code(istr->intcode)) {
    if (idval >= 0 && idval <= day_span(*istr)) {
      write_format({"TIME", static_cast<short>(istr->shiftper == 0 ? 10 : 13), 8}, fmtname, namelen, width1, width2);
      return;
    }
  }
  zintfmt(istr, fmtname, namelen, width1, width2);
}

extern "C" void zintfmp(INTERVAL* istr, double minval, double maxval, char* fmtname, short* namelen, short* width1,
                        short* width2) {
  if (istr != nullptr && istr->intcode != kIntNone && !wzmis(minval) && !wzmis(maxval) && has_time_units(*istr) &&
      !spelled_with_dt(*istr) && is_time_code(istr->intcode)) {
    if (minval >= 0 && minval <= 2 * day_span(*istr)) {
      const int code = istr->intcode;
      const double nper = zintck2(istr, minval, maxval);
      const double mult = code == kIntSecond ? 1 : code == kIntMinute ? 60 : 3600;
      const double seconds = istr->intper * nper * mult;
      const double minutes = std::floor(seconds / 60);
      const double hours = std::floor(seconds / 3600);
      const double lm = decimal_exponent(minutes);
      const double lh = decimal_exponent(hours);

      FormatChoice f{};
      double w = 0;
      double d = 0;
      if (code == kIntSecond) {
        if (nper > 1000 || lh > 1) {
          f.name = "TIME";
          w = d = lh + 6;
        } else if (lm > 1) {
          f.name = "MMSS";
          w = d = lm + 3;
        } else {
          f.name = "MMSS";
          w = d = 5;
        }
      } else if (code == kIntMinute) {
        f.name = "HHMM";
        w = d = (nper > 1000 || lh > 1) ? lh + 3 : lm + 3;
      } else if (nper > 1000) {
        f.name = "HOUR";
        w = d = lh;
      } else {
        f.name = "HHMM";
        w = lh + 3;
        d = lh;
      }
      f.width1 = capped_width(w);
      f.width2 = capped_width(d);
      write_format(f, fmtname, namelen, width1, width2);
      return;
    }
  }
  zintfmt(istr, fmtname, namelen, width1, width2);
}

extern "C" void zintfmd(INTERVAL* istr, char* fmtname, short* namelen, short* width1, short* width2) {
  if (istr != nullptr && istr->intcode != kIntNone && has_time_units(*istr) && !spelled_with_dt(*istr)) {
    const int per = istr->intper;
    FormatChoice f{};
    switch (istr->intcode) {
      case kIntSecond:
        if (per < 6)
          f = {"MMSS", 5, 5};
        else if (per < 16)
          f = {"MMSS", 6, 5};
        else if (per < 86400)
          f = {"TIME", 8, 5};
        break;
      case kIntMinute:
        if (per < 16)
          f = {"HHMM", 6, 5};
        else if (per < 61)
          f = {"HHMM", 7, 5};
        else if (per < 1440)
          f = {"HHMM", 7, 6};
        break;
      case kIntHour:
        if (per < 5)
          f = {"HHMM", 10, 8};
        else if (per < 24)
          f = {"HHMM", 11, 8};
        break;
      default:
        break;
    }
    if (f.name != nullptr) {
      write_format(f, fmtname, namelen, width1, width2);
      return;
    }
  }
  zintfmt(istr, fmtname, namelen, width1, width2);
}
