// zinti2s and zintbase: an interval record printed back as its name.
//
// The printed forms are part of the contract, since the library builds names
// and parses them: every text printed here parses back to the same record.
//
//   MONTH, 1, 0                    "MONTH"
//   MONTH, 3, 1                    "MONTH3.2"
//   WEEK, 1, 0                     "WEEK1."      (a plain WEEK keeps its 1)
//   WEEKDAY, Friday and Saturday   "WEEKDAY67W"
//   DAY in datetime units          "DTDAY"
#include <cstdint>
#include <cstring>

#include "intervals/interval.h"
#include "primitives/primitives.h"

namespace {

constexpr int kPrinted = 0;
constexpr int kTooLong = 101;
constexpr int kNullArgument = 1001;

// The longest text: "DT", a 9-letter base, seven weekend digits and "W", a
// 10-digit multiplier, "." and an 11-character shift.
constexpr int kWorkAreaSize = 2 + 9 + 8 + 10 + 1 + 11 + 1;

// A text under construction in a fixed work area.
struct NameBuilder {
  char text[kWorkAreaSize];
  int length = 0;

  void append(const char* s) {
    while (*s != '\0') text[length++] = *s++;
  }
  void append(char c) { text[length++] = c; }
  void append_number(std::int64_t value) {
    char digits[20];
    int n = 0;
    const bool negative = value < 0;
    std::uint64_t magnitude = negative ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
    do {
      digits[n++] = static_cast<char>('0' + magnitude % 10);
      magnitude /= 10;
    } while (magnitude != 0);
    if (negative) append('-');
    while (n > 0) append(digits[--n]);
  }
  bool equals(const char* s) const {
    const auto n = static_cast<int>(std::strlen(s));
    return n == length && std::memcmp(text, s, static_cast<size_t>(n)) == 0;
  }
};

// Base name with the DT prefix of a date interval in datetime units. Codes
// without a name print as NONE.
void append_base(NameBuilder& out, const INTERVAL& istr) {
  const char* name = interval_base_name(istr.intcode);
  if (name == nullptr) name = "NONE";
  if (istr.intcode >= 21 && istr.units == kUnitsDatetime) out.append("DT");
  out.append(name);
}

// The default WEEKDAY weekend: Sunday and Saturday.
bool default_weekend(const INTERVAL& istr) {
  for (int day = 0; day < 7; ++day) {
    const bool flagged = istr.weekend[day] != 0;
    if (flagged != (day == 0 || day == 6)) return false;
  }
  return true;
}

}  // namespace

extern "C" int zinti2s(char* str, int* len, INTERVAL* istr) {
  if (str == nullptr || len == nullptr || istr == nullptr) return kNullArgument;

  if (istr->intcode == kIntCustom) {
    // A custom name prints as it was written.
    if (*len < istr->tokenlen + 1) return kTooLong;
    vzmp(istr->token, istr->tokenlen, str, *len);
    str[istr->tokenlen] = '\0';
    *len = istr->tokenlen;
    return kPrinted;
  }

  NameBuilder out;
  append_base(out, *istr);

  if (istr->intcode == kIntWeekday && !default_weekend(*istr)) {
    for (int day = 0; day < 7; ++day) {
      if (istr->weekend[day] != 0) out.append(static_cast<char>('1' + day));
    }
    out.append('W');
  }

  // A multiplier below 1 reads as 1, as everywhere in the library.
  const int intper = istr->intper < 1 ? 1 : istr->intper;
  bool with_dot = true;
  if (out.equals("WEEK")) {
    // A plain WEEK always prints its multiplier and a ".", even 1: "WEEK1.".
    out.append_number(intper);
  } else {
    if (intper != 1) out.append_number(intper);
    if (intper == 1 && istr->shiftper == 0) with_dot = false;
  }
  if (with_dot) {
    out.append('.');
    if (istr->shiftper != 0) out.append_number(static_cast<std::int64_t>(istr->shiftper) + 1);
  }

  if (out.length + 1 > *len) return kTooLong;
  std::memcpy(str, out.text, static_cast<size_t>(out.length));
  str[out.length] = '\0';
  *len = out.length;
  return kPrinted;
}

extern "C" int zintbase(char* name, int* l, INTERVAL* istr) {
  if (name == nullptr || l == nullptr || istr == nullptr) return kNullArgument;
  NameBuilder out;
  append_base(out, *istr);  // at most "DT" and 9 letters: 11 bytes
  std::memcpy(name, out.text, static_cast<size_t>(out.length));
  *l = out.length;
  return 0;
}
