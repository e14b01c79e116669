// zintstr: the interval-name parser.
//
// Grammar, read on the upper-cased text:
//
//   name    := ["DT" | "T"] base [weekend] [multiplier] ["." [shift]]
//            | multiplier ["."]                        observation interval
//            | custom [multiplier] ["." [shift]]      custom interval
//   weekend := 1 to 6 digits from "1" to "7", then "W"  (WEEKDAY only)
//
// multiplier and shift are decimal digit strings from 1 to 2147483647.
// Examples: "MONTH" -> 45/1/0, "MONTH3.2" -> 45/3/1, "DTHOUR4" -> 20/4/0 in
// datetime units, "WEEKDAY17W" -> 27 with Sunday and Saturday off, "12" ->
// OBS with multiplier 12.
//
// The parser runs for every interval name the methods and the calendar
// routines see. It allocates nothing; the only table it consults besides the
// character classes is the fixed table of base names in getname.
#include <cstdint>
#include <cstring>

#include "host/host_ctype.h"
#include "intervals/interval.h"
#include "module/host_api.h"
#include "primitives/primitives.h"

namespace {

constexpr int kTokenCapacity = 22;  // working texts hold up to 21 characters
constexpr int kMaxNameLength = 21;
constexpr std::int64_t kMaxNumber = 2147483647;

// Parser results.
constexpr int kParsed = 0;
constexpr int kBadMultiplier = 1;
constexpr int kBadShift = 2;
constexpr int kBadLength = 101;
constexpr int kBadSyntax = 102;
constexpr int kUnknownName = 103;
constexpr int kNullArgument = 1001;
constexpr int kCustomLoadFailed = -1;

inline bool is_letter(tchar c) { return host_is_letter(c); }
inline bool is_digit(tchar c) { return host_is_digit(c); }

// One accepted spelling of a base name: the characters after its first
// letter and the interval code it stands for.
struct NameTail {
  const char* tail;
  int length;
  int code;
};

template <int N>
constexpr NameTail tail(const char (&text)[N], int code) {
  return NameTail{text, N - 1, code};
}

constexpr NameTail kTailsA[] = {tail("NNUAL", kIntYear), tail("NNUALLY", kIntYear), tail("NNUALS", kIntYear)};
constexpr NameTail kTailsD[] = {tail("AY", kIntDay), tail("AILY", kIntDay), tail("AYS", kIntDay)};
constexpr NameTail kTailsH[] = {tail("OUR", kIntHour), tail("OURLY", kIntHour), tail("OURS", kIntHour),
                                tail("R", kIntHour)};
constexpr NameTail kTailsM[] = {tail("ONTH", kIntMonth), tail("ONTHLY", kIntMonth), tail("ONTHS", kIntMonth),
                                tail("ON", kIntMonth),   tail("INUTE", kIntMinute), tail("INUTES", kIntMinute),
                                tail("IN", kIntMinute)};
constexpr NameTail kTailsN[] = {tail("ONE", kIntNone)};
constexpr NameTail kTailsO[] = {tail("BS", kIntObs)};
constexpr NameTail kTailsQ[] = {tail("TR", kIntQtr),      tail("UARTER", kIntQtr), tail("UARTERLY", kIntQtr),
                                tail("UARTERS", kIntQtr), tail("TRLY", kIntQtr),   tail("TRS", kIntQtr)};
constexpr NameTail kTailsR[] = {tail("445MON", kIntR445Mon), tail("454MON", kIntR454Mon), tail("544MON", kIntR544Mon),
                                tail("445QTR", kIntR445Qtr), tail("454QTR", kIntR454Qtr), tail("544QTR", kIntR544Qtr),
                                tail("445YR", kIntR445Yr),   tail("454YR", kIntR454Yr),   tail("544YR", kIntR544Yr)};
constexpr NameTail kTailsS[] = {
    tail("ECOND", kIntSecond),       tail("ECONDS", kIntSecond),        tail("EC", kIntSecond),
    tail("EMIMONTH", kIntSemimonth), tail("EMIMONTHLY", kIntSemimonth), tail("EMIMONTHS", kIntSemimonth),
    tail("EMIMON", kIntSemimonth),   tail("EMIYEAR", kIntSemiyear),     tail("EMIYEARLY", kIntSemiyear),
    tail("EMIYEARS", kIntSemiyear),  tail("EMIYR", kIntSemiyear),       tail("EMIANNUAL", kIntSemiyear),
    tail("EMIANN", kIntSemiyear)};
constexpr NameTail kTailsT[] = {tail("ENDAY", kIntTenday)};
constexpr NameTail kTailsW[] = {tail("EEK", kIntWeek),       tail("EEKLY", kIntWeek),      tail("EEKS", kIntWeek),
                                tail("EEKDAY", kIntWeekday), tail("EEKDAYS", kIntWeekday), tail("EEKV", kIntWeekv)};
constexpr NameTail kTailsY[] = {tail("EAR", kIntYear), tail("EARS", kIntYear), tail("EARLY", kIntYear),
                                tail("R", kIntYear), tail("EARV", kIntYearv)};

template <int N>
int match_tail(const NameTail (&tails)[N], const tchar* rest, int rest_length) {
  for (const NameTail& t : tails) {
    if (t.length == rest_length && std::memcmp(t.tail, rest, static_cast<size_t>(rest_length)) == 0) {
      return t.code;
    }
  }
  return -1;
}

// The interval code of a base name of exactly `l` upper-case characters, or
// -1. Switches on the first letter, then compares the tail by length and
// bytes.
int getname(const tchar* name, int l) {
  if (l < 1) return -1;
  const tchar* rest = name + 1;
  const int rest_length = l - 1;
  switch (name[0]) {
    case 'A':
      return match_tail(kTailsA, rest, rest_length);
    case 'D':
      return match_tail(kTailsD, rest, rest_length);
    case 'H':
      return match_tail(kTailsH, rest, rest_length);
    case 'M':
      return match_tail(kTailsM, rest, rest_length);
    case 'N':
      return match_tail(kTailsN, rest, rest_length);
    case 'O':
      return match_tail(kTailsO, rest, rest_length);
    case 'Q':
      return match_tail(kTailsQ, rest, rest_length);
    case 'R':
      return match_tail(kTailsR, rest, rest_length);
    case 'S':
      return match_tail(kTailsS, rest, rest_length);
    case 'T':
      return match_tail(kTailsT, rest, rest_length);
    case 'W':
      return match_tail(kTailsW, rest, rest_length);
    case 'Y':
      return match_tail(kTailsY, rest, rest_length);
    default:
      return -1;
  }
}

// Reads the digits s[0..l) as a number from 1 to 2147483647. The running
// value is held in 64 bits and tested after every digit, so no text of the
// parser's length can wrap. Returns 0, `too_big` for a value above the limit
// or below 1, or 102 for a character that isn't a digit.
int read_number(const tchar* s, int l, int too_big, int* value) {
  std::int64_t v = 0;
  for (int i = 0; i < l; ++i) {
    if (!is_digit(s[i])) return kBadSyntax;
    v = v * 10 + (s[i] - '0');
    if (v > kMaxNumber) return too_big;
  }
  if (v < 1) return too_big;
  *value = static_cast<int>(v);
  return kParsed;
}

// Multiplier and shift from the l characters at s, with the "." at di (-1
// when absent). *per is the multiplier (1 when absent) and *shift the shift
// as written, 1-based (0 when absent). Returns 0, 1, 2 or 102.
int getnum(const tchar* s, int l, int di, int* per, int* shift) {
  *per = 1;
  *shift = 0;
  const int per_length = di < 0 ? l : di;
  if (per_length > 0) {
    const int rc = read_number(s, per_length, kBadMultiplier, per);
    if (rc != kParsed) return rc;
  }
  if (di < 0) return kParsed;
  const int shift_length = l - di - 1;
  if (shift_length == 0) return kParsed;  // "MONTH3." is MONTH3
  return read_number(s + di + 1, shift_length, kBadShift, shift);
}

// Sub-periods in one interval of multiplier 1: the largest shift allowed.
constexpr int shift_limit(int code) {
  switch (code) {
    case kIntWeek:
    case kIntWeekv:
      return 7;
    case kIntQtr:
    case kIntR445Qtr:
    case kIntR454Qtr:
    case kIntR544Qtr:
      return 3;
    case kIntSemiyear:
      return 6;
    case kIntYear:
    case kIntR445Yr:
    case kIntR454Yr:
    case kIntR544Yr:
      return 12;
    case kIntYearv:
      return 52;
    default:
      return 1;
  }
}

// 1 when `shift` exceeds intper times the shift limit of `code`, else 0.
int checkshift(int code, int intper, int shift) {
  if (shift < 1) return 0;
  return static_cast<std::int64_t>(shift) > static_cast<std::int64_t>(intper) * shift_limit(code) ? 1 : 0;
}

// Fills nweekday and weekend from the `wi` weekend digits at s. Returns 0, or
// 1 for a count outside 1..6, a digit outside "1".."7", or no working day.
int weekday(INTERVAL* istr, const tchar* s, int wi) {
  if (wi < 1 || wi > 6) return 1;
  for (int i = 0; i < wi; ++i) {
    if (s[i] < '1' || s[i] > '7') return 1;
    istr->weekend[s[i] - '1'] = 1;  // a digit may repeat
  }
  int working = 0;
  for (char flag : istr->weekend) working += flag == 0;
  if (working == 0) return 1;
  istr->nweekday = static_cast<char>(working);
  return 0;
}

// Position of the first occurrence of the three characters `digits` in
// token[0..l), or -1.
int find_triplet(const tchar* token, int l, const char* digits) {
  for (int p = 0; p + 3 <= l; ++p) {
    if (token[p] == digits[0] && token[p + 1] == digits[1] && token[p + 2] == digits[2]) return p;
  }
  return -1;
}

// Where the retail digits of "R445MON", "DTR544YR" and so on stand, or -1.
// The first of "445", "454", "544" found decides; it counts only between an
// "R" and one of the retail suffixes.
int retail_position(const tchar* token, int l) {
  int p = find_triplet(token, l, "445");
  if (p < 0) p = find_triplet(token, l, "454");
  if (p < 0) p = find_triplet(token, l, "544");
  if (p <= 0 || token[p - 1] != 'R') return -1;
  const tchar* suffix = token + p + 3;
  if (p + 5 <= l && suffix[0] == 'Y' && suffix[1] == 'R') return p;
  if (p + 6 <= l && ((suffix[0] == 'Q' && suffix[1] == 'T' && suffix[2] == 'R') ||
                     (suffix[0] == 'M' && suffix[1] == 'O' && suffix[2] == 'N'))) {
    return p;
  }
  return -1;
}

// Asks the custom registry about the first `len` characters of `name`:
// kIntCustom for a mapped name, anything else for a miss.
int lookup_custom_name(tchar* name, int len) { return getcustomname(name, len); }

}  // namespace

extern "C" int zintstr(tchar* specin, int len, INTERVAL* istr) {
  if (specin == nullptr || istr == nullptr) return kNullArgument;
  const int l = len < 0 ? wzstlen(specin) : len;
  if (l < 1 || l > kMaxNameLength) return kBadLength;

  std::memset(istr, 0, sizeof(*istr));
  istr->tokenlen = static_cast<short>(l);
  std::memcpy(istr->token, specin, static_cast<size_t>(l));
  istr->intper = 1;

  tchar token[kTokenCapacity];
  wztxxlt(2, specin, token, l);  // upper case

  // The leading name: letters, plus the digits of a retail name.
  const int ret_pos = retail_position(token, l);
  int nc = 0;
  while (nc < l) {
    if (nc == ret_pos) {
      nc += 3;
    } else if (is_letter(token[nc])) {
      ++nc;
    } else {
      break;
    }
  }

  // The tail: digits, one ".", and the "W" of weekend digits.
  int di = -1;  // position of the ".", counted from nc once the scan is done
  int wi = -1;  // position of the "W"
  bool complex_tail = false;
  for (int i = nc; i < l; ++i) {
    const tchar c = token[i];
    if (c == '.') {
      if (di >= 0) return kBadSyntax;
      di = i;
    } else if (c == 'W') {
      if (wi >= 0 || di >= 0) {
        complex_tail = true;
        break;
      }
      wi = i;
    } else if (!is_digit(c)) {
      complex_tail = true;
      break;
    }
  }

  int code = -1;
  if (complex_tail) {
    // Only a custom name can hold such characters. Its tail is what follows
    // the last ".", which must be digits, and the digits that end the name.
    int name_end = l;
    int last_dot = -1;
    for (int i = l - 1; i >= 0; --i) {
      if (token[i] == '.') {
        last_dot = i;
        break;
      }
    }
    if (last_dot >= 0) {
      for (int i = last_dot + 1; i < l; ++i) {
        if (!is_digit(token[i])) return kBadSyntax;
      }
      name_end = last_dot;
    }
    int trailing_digits_start = name_end;
    while (trailing_digits_start > 0 && is_digit(token[trailing_digits_start - 1])) --trailing_digits_start;
    nc = trailing_digits_start > 0 ? trailing_digits_start : name_end;
    di = last_dot >= 0 ? last_dot - nc : -1;
    wi = -1;  // a "W" seen lies inside the name
  } else if (nc == 0) {
    // A purely numeric text is an observation interval: multiplier ["."].
    if (wi >= 0) return kBadSyntax;
    int multiplier = 1;
    const int per_length = di < 0 ? l : di;
    if (per_length > 0) {
      const int rc = read_number(token, per_length, kBadMultiplier, &multiplier);
      if (rc != kParsed) return rc;
    }
    if (di >= 0 && di + 1 < l) {
      for (int i = di + 1; i < l; ++i) {
        if (!is_digit(token[i])) return kBadSyntax;
      }
      return kBadShift;  // an observation interval has no shift
    }
    istr->units = kUnitsObs;
    istr->intcode = kIntObs;
    istr->intper = multiplier;
    return kParsed;
  } else {
    if (di >= 0) di -= nc;
    if (wi >= 0) wi -= nc;
    if (nc > 1) {
      const tchar* base = token;
      int base_length = nc;
      if (token[0] == 'D' && token[1] == 'T') {
        base += 2;
        base_length -= 2;
        istr->units = kUnitsDatetime;
      } else if (token[0] == 'T' && token[1] != 'E') {  // "TE": keep TENDAY whole
        base += 1;
        base_length -= 1;
        istr->units = kUnitsDatetime;
      }
      if (base_length >= 2) code = getname(base, base_length);
    }
  }

  if (code < 0) {
    // Custom names: the leading name first, then the whole text, which then
    // carries no multiplier or shift.
    if (lookup_custom_name(specin, nc) == kIntCustom) {
      code = kIntCustom;
    } else if (lookup_custom_name(specin, l) == kIntCustom) {
      code = kIntCustom;
      nc = l;
      di = -1;
      wi = -1;
    } else {
      return kUnknownName;
    }
  }

  istr->intcode = static_cast<char>(code);
  const tchar* rest = token + nc;
  int rest_length = l - nc;
  if (code == kIntWeekday) {
    if (wi < 0) {
      istr->nweekday = 5;
      istr->weekend[0] = 1;  // Sunday
      istr->weekend[6] = 1;  // Saturday
    } else {
      if (weekday(istr, rest, wi) != 0) return kBadSyntax;
      rest += wi + 1;
      rest_length -= wi + 1;
      if (di >= 0) di -= wi + 1;
    }
  } else if (wi >= 0) {
    return kBadSyntax;  // weekend digits only follow WEEKDAY
  }

  if (rest_length > 0) {
    if (code == kIntNone) return kUnknownName;
    int multiplier = 1;
    int shift = 0;
    const int rc = getnum(rest, rest_length, di, &multiplier, &shift);
    if (rc != kParsed) return rc;
    if (checkshift(code, multiplier, shift) != 0) return kBadShift;
    istr->intper = multiplier;
    istr->shiftper = shift > 0 ? shift - 1 : 0;
  }

  if (code == kIntCustom) {
    // The table is loaded before anything else reads it, so that a table
    // that cannot be loaded is reported once, here, and not also by each
    // routine that would read it for the format.
    CINTCInfo* info = nullptr;
    const int status = zcustLoad(istr, &info);
    if (status < 0) {
      xprrlog(0, status);  // the host reports the status
      return kCustomLoadFailed;
    }
    if (info != nullptr) zcintcReleaseRef(info);
    // The units of a custom interval follow from its default format.
    tchar format[32];
    std::memset(format, ' ', sizeof(format));
    short format_length = 0;
    short width1 = 0;
    short width2 = 0;
    zintfmt(istr, format, &format_length, &width1, &width2);
    istr->units = zfmtunits(format, format_length);
  }
  if (istr->units == 0) {
    if (code == kIntNone) {
      istr->units = kUnitsNone;
    } else if (code == kIntObs) {
      istr->units = kUnitsObs;
    } else if (code < kIntFirstDate) {
      istr->units = kUnitsDatetime;
    } else {
      istr->units = kUnitsDate;
    }
  }

  return kParsed;
}
