// The calendar-interval record and the exported interval routines.
//
// Every routine of the calendar library works on one small record, INTERVAL,
// that holds a parsed interval name such as "MONTH3.2" or "DTWEEKDAY17W":
//
//   INTERVAL iv;
//   zintstr((tchar*)"MONTH3.2", -1, &iv);  // intcode 45, intper 3, shiftper 1
//   zintck2(&iv, d1, d2);                  // boundaries passed from d1 to d2
//   zintnx2(&iv, d1, 1.0);                 // start of the next interval
//
// INTERVALX extends it with a custom-interval reference, a default format and
// a seasonal cycle. It derives from INTERVAL, so its head is the same nine
// fields in the same order and an INTERVALX* converts to an INTERVAL*.
//
// Time values are doubles: dates count days since 1 January 1960 (a Friday),
// datetimes count seconds since 1 January 1960 00:00:00, observation numbers
// are plain counts. Which kind a value is follows from `units`.
#pragma once

#include "module/export.h"
#include "primitives/primitives.h"

// Custom interval data, owned by reference (defined by the custom-interval
// subsystem).
struct CINTC_INFO;
typedef struct CINTC_INFO CINTCInfo;

// A parsed time interval. A record cleared to zero has intcode 0 and units 0.
struct INTERVAL {
  char units;       // 'd' date, 's' datetime, 'o' observation, 'u' NONE; 0 cleared
  char intcode;     // interval code, see kInt... below; 0 is NONE
  int intper;       // multiplier, >= 1 (readers take a value below 1 as 1)
  int shiftper;     // shift in sub-periods, counted from 0 ("MONTH3.2" -> 1)
  char nweekday;    // WEEKDAY: working days in a week [1:7]
  char weekend[7];  // WEEKDAY: 1 for a weekend day; [0] Sunday .. [6] Saturday
  tchar token[22];  // the parsed text in the case of the input, rest 0
  short tokenlen;   // characters in token [1:21]
  void* holidays;   // cleared by the parser and copied with the record; unread
};

// An INTERVAL followed by what the seasonal and custom routines need.
struct INTERVALX : INTERVAL {
  struct CINTC_INFO* cinfo;     // custom interval table, one reference; else null
  QKMemPtr ccache;              // cache of the custom interval routines
  short formatw;                // default format width
  short formatl;                // length of the text in format
  tchar format[9];              // name of the default format
  int nseasons;                 // length of the seasonal cycle, 0 while unknown
  struct INTERVALX* sinterval;  // seasonal cycle interval (caller's record) or null
};

// Either record, for the season routines. `new` is a keyword, so the member
// that points at an INTERVALX is spelled `new_`.
union INTERVALS {
  struct INTERVAL* old;
  struct INTERVALX* new_;
};

// What interval fitting and the list bridge hand back.
struct INTINFO {
  struct INTERVAL sinterval;  // the seasonal cycle interval
  int nseasons;               // length of the seasonal cycle
  short formatw;              // default format width
  short formatl;              // length of the format name
  tchar format[9];            // default format name
};

// Interval codes. The order is meaningful: a code below kIntDay (25) is a
// time interval, below kIntMonthFamily (32) the arithmetic is day-based.
// 28, 29, 38, 43, 49, 54 and 58 are reserved: no name parses to them.
inline constexpr int kIntNone = 0;
inline constexpr int kIntObs = 1;
inline constexpr int kIntSecond = 10;
inline constexpr int kIntMinute = 15;
inline constexpr int kIntHour = 20;
inline constexpr int kIntDay = 25;
inline constexpr int kIntWeekday = 27;
inline constexpr int kIntWeek = 30;
inline constexpr int kIntWeekv = 31;
inline constexpr int kIntTenday = 35;
inline constexpr int kIntSemimonth = 40;
inline constexpr int kIntMonth = 45;
inline constexpr int kIntR445Mon = 46;
inline constexpr int kIntR454Mon = 47;
inline constexpr int kIntR544Mon = 48;
inline constexpr int kIntQtr = 50;
inline constexpr int kIntR445Qtr = 51;
inline constexpr int kIntR454Qtr = 52;
inline constexpr int kIntR544Qtr = 53;
inline constexpr int kIntSemiyear = 55;
inline constexpr int kIntYear = 60;
inline constexpr int kIntR445Yr = 61;
inline constexpr int kIntR454Yr = 62;
inline constexpr int kIntR544Yr = 63;
inline constexpr int kIntYearv = 64;
inline constexpr int kIntCustom = 65;  // a name from the custom registry ('A')

// Codes at or above this are date intervals; below it, time (or NONE/OBS).
inline constexpr int kIntFirstDate = kIntDay;
// Codes above this use calendar (month-index) arithmetic.
inline constexpr int kIntMonthFamily = 32;

inline constexpr bool is_reserved_intcode(int code) {
  return code == 28 || code == 29 || code == 38 || code == 43 || code == 49 || code == 54 || code == 58;
}

// Base name of an interval code as the printer writes it ("MONTH",
// "R445YR", ...), or null for a code without one (reserved, custom, unknown).
inline constexpr const char* interval_base_name(int code) {
  switch (code) {
    case kIntNone:
      return "NONE";
    case kIntObs:
      return "OBS";
    case kIntSecond:
      return "SECOND";
    case kIntMinute:
      return "MINUTE";
    case kIntHour:
      return "HOUR";
    case kIntDay:
      return "DAY";
    case kIntWeekday:
      return "WEEKDAY";
    case kIntWeek:
      return "WEEK";
    case kIntWeekv:
      return "WEEKV";
    case kIntTenday:
      return "TENDAY";
    case kIntSemimonth:
      return "SEMIMONTH";
    case kIntMonth:
      return "MONTH";
    case kIntR445Mon:
      return "R445MON";
    case kIntR454Mon:
      return "R454MON";
    case kIntR544Mon:
      return "R544MON";
    case kIntQtr:
      return "QTR";
    case kIntR445Qtr:
      return "R445QTR";
    case kIntR454Qtr:
      return "R454QTR";
    case kIntR544Qtr:
      return "R544QTR";
    case kIntSemiyear:
      return "SEMIYEAR";
    case kIntYear:
      return "YEAR";
    case kIntR445Yr:
      return "R445YR";
    case kIntR454Yr:
      return "R454YR";
    case kIntR544Yr:
      return "R544YR";
    case kIntYearv:
      return "YEARV";
    default:
      return nullptr;
  }
}

// Values of `units`.
inline constexpr char kUnitsDate = 'd';
inline constexpr char kUnitsDatetime = 's';
inline constexpr char kUnitsObs = 'o';
inline constexpr char kUnitsNone = 'u';

// Date limits of the library: 1 January 1582 .. 6589335.
inline constexpr long kMinDate = -138061;
inline constexpr long kMaxDate = 6589335;
// Counting refuses time values above this in magnitude.
inline constexpr double kMaxTimeValue = 1.3407807929942597e+152;
// Advancing refuses counts above 2^53 in magnitude.
inline constexpr double kMaxAdvance = 9007199254740992.0;
// 2^53 less the top date: the bound on (period in days) * |n| when advancing.
inline constexpr long kAdvanceOverflowLimit = 9007199248151657;
static_assert(kAdvanceOverflowLimit == 9007199254740992L - kMaxDate);

// Retail calendars: zero-based ISO week offsets at which months 1 to 12
// begin. A week 53 falls into month 12.
inline constexpr int r445mon_index[12] = {0, 4, 8, 13, 17, 21, 26, 30, 34, 39, 43, 47};
inline constexpr int r454mon_index[12] = {0, 4, 9, 13, 17, 22, 26, 30, 35, 39, 43, 48};
inline constexpr int r544mon_index[12] = {0, 5, 9, 13, 18, 22, 26, 31, 35, 39, 44, 48};

extern "C" {

// ---- Record building, parsing and printing --------------------------------

// Plain interval of a code (multiplier 1, no shift). 0, or 1 when the code has
// no base name here (reserved, retail years, custom, unknown).
ESF_EXPORT int zintic(int intcode, struct INTERVAL* istr);
// Interval of a code with multiplier m (0: none) and text shift s (0: none).
// 1 for m < 0, 2 for s < 0, 103 when the code has no base name; else zintstr.
ESF_EXPORT int zinticms(int intcode, int m, int s, struct INTERVAL* istr);
// Parses an interval name. len < 0: specin is NUL-terminated. Results:
// 0 filled, 1 bad multiplier, 2 bad shift, 101 length not in 1..21,
// 102 syntax, 103 unknown name, 1001 null pointer, -1 custom load failed.
ESF_EXPORT int zintstr(tchar* specin, int len, struct INTERVAL* istr);
// Prints an interval into str (*len bytes); *len becomes the text length.
// 0, 101 when it doesn't fit with its NUL, 1001 for a null pointer.
ESF_EXPORT int zinti2s(char* str, int* len, struct INTERVAL* istr);
// The base name alone, with the DT prefix where it applies; name holds 11
// bytes, no terminator is written. Returns 0.
ESF_EXPORT int zintbase(char* name, int* l, struct INTERVAL* istr);

// ---- Date primitives -------------------------------------------------------

ESF_EXPORT int zidywdd(double date, tchar* fmt, int fmtl, double* year, double* week, double* day);
ESF_EXPORT int zidywdds(double date, int leap_index, double* year, double* week, double* day);
ESF_EXPORT double ziddywd(int year, int week, int day);
ESF_EXPORT double ziddywds(int year, int week, int day);
ESF_EXPORT int zidmdydf(int* m, int* d, int* y, double qordate, int format);
ESF_EXPORT int zdatdif(double sdate, double edate, int convent, long* pDays, double* pYears);
ESF_EXPORT int iso_week_days(int yday, int wday);
ESF_EXPORT long diff_30_360(int m1, int d1, int y1, int m2, int d2, int y2);
ESF_EXPORT void diff_actact(int m1, int d1, int y1, int m2, int d2, int y2, long* pDays, double* pYears);
ESF_EXPORT long diff_actual(int m1, int d1, int y1, int m2, int d2, int y2);
ESF_EXPORT int isLeapYear(int year);
ESF_EXPORT int lastDay(int year, int month);
ESF_EXPORT long dateOffset(int mm, int dd, int yy);

// ---- Counting and advancing -----------------------------------------------

ESF_EXPORT double zintck2(struct INTERVAL* istr, double x1, double x2);
ESF_EXPORT double zintnx2(struct INTERVAL* istr, double x, double n);
ESF_EXPORT double zintnx3(struct INTERVAL* istr, double inptDate, double n, tchar* align, struct INTERVAL* sub_intrvl);
ESF_EXPORT int zintshft(struct INTERVAL* istr, struct INTERVAL* sistr);

// ---- Seasonal cycle, comparison, fitting ----------------------------------

// Standard seasonal cycle of an interval and its number of seasons (MONTH:
// YEAR and 12). 0 found, 1 no cycle (sinterval cleared, *nseasons 0),
// 2 a null argument or a cleared interval. `date` places a cycle whose
// count follows from the dates, and is passed to a custom interval.
ESF_EXPORT int zintsea(struct INTERVAL* interval, double date, struct INTERVAL* sinterval, int* nseasons);
// As zintsea; also a cycle for OBS ("OBS<per>", 1 season), and *nseasons on
// entry picks 52 or 53 weeks for WEEK (53 only when asked) and WEEKV (52
// only when asked).
ESF_EXPORT int zintsea2(struct INTERVAL* interval, double date, struct INTERVAL* sinterval, int* nseasons);
ESF_EXPORT double zintc(struct INTERVAL* a, struct INTERVAL* b);
// The interval that carries d1 onto d2 with alignment "S" (units 'd', 's'
// or 'o'): 0 found, with the cycle and format in info when given; 1 none
// fits (interval cleared to NONE); 2 a value is missing; 3 d2 isn't at
// least one unit after d1.
ESF_EXPORT int zintfit(double d1, double d2, char* units, struct INTERVAL* interval, struct INTINFO* info);
// Sets the multiplier and shift on interval that carry d1 onto d2: 0 or 1.
ESF_EXPORT int fitInterval(struct INTERVAL* interval, struct INTERVAL* shift_interval, double d1, double d2);
// Sets the shift, in shift_interval units, that places d1 and d2 alike
// within their periods: 0, or 1 when their places differ.
ESF_EXPORT int shift2(struct INTERVAL* interval, struct INTERVAL* shift_interval, double d1, double d2);

// ---- Default formats -------------------------------------------------------

// Name (no terminator), its length and two widths of the default format of
// an interval: width1 to use, width2 a smaller one that still shows a value.
ESF_EXPORT void zintfmt(struct INTERVAL* istr, char* fmtname, short* namelen, short* width1, short* width2);
// The same for a time ID value: a small value of a time interval is a time
// of day.
ESF_EXPORT void zintfmm(struct INTERVAL* istr, double idval, char* fmtname, short* namelen, short* width1,
                        short* width2);
// The same for a range of time IDs of a time interval counted from 0.
ESF_EXPORT void zintfmp(struct INTERVAL* istr, double minval, double maxval, char* fmtname, short* namelen,
                        short* width1, short* width2);
// The same for a duration of one interval.
ESF_EXPORT void zintfmd(struct INTERVAL* istr, char* fmtname, short* namelen, short* width1, short* width2);

// ---- Season-aware counting and advancing, season codes, cycles ------------

// First day of the week-year that holds date0; *year is that week-year and
// *ds1 the first day of the next one.
ESF_EXPORT double zintyrse(double date0, int* year, double* ds1);
// Whole intervals from date0 to date1 in the sense of alignment "S", or ".".
ESF_EXPORT double zintck3(struct INTERVALX* intervalx, double date0, double date1);
// date0 advanced by n intervals: WEEK in a YEAR cycle and WEEKV in a YEARV
// cycle keep their week of the year; YEAR aligned to WEEK starts on a
// week-year; YEAR and SEMIMONTH aligned to WEEKDAY land on a working day;
// WEEK aligned to WEEKDAY starts on the first working day. Else zintnx2.
ESF_EXPORT double zintnx_seas(struct INTERVALX* intervalx, double date0, double n, struct INTERVALX* align_int);
// The count that matches zintnx_seas; else zintck2.
ESF_EXPORT double zintck_seas(struct INTERVALX* intervalx, double date0, double daten, struct INTERVALX* align_int);
// Season code (0 .. nseasons - 1) of each of n observations from stdate.
// scode: 0 or more is the leap-week code of WEEK and WEEKV; -2 takes the
// caller's *nseasons as the cycle's length; other negatives switch the
// weekly treatment off. *nseasons < 0 asks for the count found.
// 0 filled, 1 no seasons (codes all 0), -1 no cycle or a failed date.
ESF_EXPORT int zintscd(struct INTERVAL* intv, double stdate, int scode, long n, int* scodes, int* nseasons);
// As zintscd, on the INTERVALX itself: its cycle and nseasons are used when
// present and set when found.
ESF_EXPORT int zintscd2(struct INTERVALX* intv, double stdate, int scode, long n, int* scodes, int* nseasons);
// Row of seasonal dummies for one observation (nseasons + noint - 1 entries);
// a WEEK leap week (scode == nseasons) is shared between the last and the
// first season by *partial, worked out when missing.
ESF_EXPORT void zintscy(struct INTERVAL* intv, int scode, double date, int nseasons, int noint, double* sdummy,
                        double* partial);
// Sets interval->nseasons and the cycle of interval from a number of seasons
// and/or a cycle name: 0; 1 the cycle doesn't fit; 2 they disagree or a
// null interval.
ESF_EXPORT int zintsea_set(struct INTERVALX* interval, double date, struct INTERVALX* sinterval, int* nseasons);
// Number of seasons of interval in the cycle sinterval: 0, or 1 when the
// cycle doesn't begin and end on the interval's boundaries.
ESF_EXPORT int zintsea_calc_nseasons(struct INTERVALX* interval, double date, struct INTERVALX* sinterval,
                                     int* nseasons);
// sinterval becomes the interval nseasons times as long as interval, in
// the largest standard unit it fills. act_flag: 0..3 what to do with the
// cycle of the result, 0x10 let a DAY or WEEKDAY multiple take a plain
// WEEK, 4 keep weeks as weeks, 8 no simplification. 0, or 2 for a null
// argument.
ESF_EXPORT int zintmult(struct INTERVALX* interval, int nseasons, struct INTERVALX* sinterval, int act_flag);
// Multiples of ISO and retail intervals written in the largest unit they
// fill (R445MON12 -> R445YR): 0, 1 for other codes, 2 for null.
ESF_EXPORT int zintrsimp(struct INTERVALX* interval);

// ---- Custom intervals ------------------------------------------------------
//
// Defined by the custom-interval subsystem (src/custom); the calendar
// routines hand every record of code kIntCustom to them.

// 65 when name is a mapped custom interval name, 0 when not, < 0 on failure.
ESF_EXPORT int getcustomname(tchar* name, int len);
// Loads the table of a custom interval: 0 (with a reference in *oinfo, or
// null when unmapped) or a negative status.
ESF_EXPORT int zcustLoad(struct INTERVAL* interval, CINTCInfo** oinfo);
// Gives up one reference to a custom interval table.
ESF_EXPORT void zcintcReleaseRef(CINTCInfo* cinfo);
ESF_EXPORT double customINTCK(struct INTERVALX* intervalx, double x1, double x2);
ESF_EXPORT double customINTNX(struct INTERVALX* intervalx, double x, double n);
ESF_EXPORT double customINTNXE(struct INTERVALX* intervalx, double x, double n);
ESF_EXPORT double customINTINDEX(struct INTERVALX* intervalx, double x, double n);
ESF_EXPORT double customINTSEAS(struct INTERVALX* intervalx, double x);
// Default format of a custom interval: 0, or a non-zero status.
ESF_EXPORT int customINTFMT(struct INTERVALX* intervalx, char* fmtname, short* namelen, short* width1, short* width2);
// The `units` letter that a format name implies, or 0.
ESF_EXPORT char zfmtunits(char* format, int fmtlen);

}  // extern "C"
