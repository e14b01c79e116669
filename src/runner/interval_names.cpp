#include "runner/interval_names.h"

#include <array>
#include <cctype>
#include <string>

namespace esf::runner {
namespace {

constexpr std::array<const char*, 12> kMonths{"JAN", "FEB", "MAR", "APR", "MAY", "JUN",
                                              "JUL", "AUG", "SEP", "OCT", "NOV", "DEC"};
// pandas' week anchors, by the day the week ends on.
constexpr std::array<const char*, 7> kWeekEnds{"SUN", "MON", "TUE", "WED", "THU", "FRI", "SAT"};

std::string upper(std::string_view s) {
  std::string u(s);
  for (char& c : u) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return u;
}

// The name with the text shift of a period that begins in sub-period
// `first` (0 for the plain interval).
std::string shifted(const char* base, int first) {
  return first == 0 ? std::string(base) : std::string(base) + "." + std::to_string(first + 1);
}

// 0-based month of a three-letter month name, or -1.
int month_of(std::string_view name) {
  for (std::size_t m = 0; m < kMonths.size(); ++m) {
    if (name == kMonths[m]) return static_cast<int>(m);
  }
  return -1;
}

// Anchored aliases: "W-SUN", "Q-JAN", "QS-FEB", "A-JUN", "AS-JUL", ...
std::string anchored(const std::string& u) {
  const auto dash = u.find('-');
  if (dash == std::string::npos) return {};
  const std::string head = u.substr(0, dash);
  const std::string anchor = u.substr(dash + 1);
  if (head == "W") {
    for (std::size_t d = 0; d < kWeekEnds.size(); ++d) {
      // A week that ends on day d begins on day d + 1 (0 Sunday).
      if (anchor == kWeekEnds[d]) return shifted("WEEK", static_cast<int>((d + 1) % 7));
    }
    return {};
  }
  const int m = month_of(anchor);
  if (m < 0) return {};
  const bool starts = head == "QS" || head == "AS" || head == "YS" || head == "BQS" || head == "BAS";
  const bool ends =
      head == "Q" || head == "QE" || head == "A" || head == "Y" || head == "YE" || head == "BQ" || head == "BA";
  if (!starts && !ends) return {};
  const int first = starts ? m : (m + 1) % 12;  // the month the period begins in
  if (head[0] == 'Q' || head == "BQ" || head == "BQS") return shifted("QTR", first % 3);
  return shifted("YEAR", first);
}

}  // namespace

std::string interval_of_alias(std::string_view alias) {
  // The unanchored aliases keep pandas' case where case tells two apart
  // ("M" month, "min" minute, "ms" a millisecond that has no interval here).
  static const struct {
    const char* alias;
    const char* name;
  } plain[] = {{"D", "DAY"},    {"B", "WEEKDAY"},  {"W", "WEEK.2"}, {"M", "MONTH"}, {"ME", "MONTH"}, {"MS", "MONTH"},
               {"BM", "MONTH"}, {"BMS", "MONTH"},  {"Q", "QTR"},    {"QE", "QTR"},  {"QS", "QTR"},   {"A", "YEAR"},
               {"Y", "YEAR"},   {"YE", "YEAR"},    {"AS", "YEAR"},  {"YS", "YEAR"}, {"H", "HOUR"},   {"h", "HOUR"},
               {"T", "MINUTE"}, {"min", "MINUTE"}, {"S", "SECOND"}, {"s", "SECOND"}};
  for (const auto& p : plain) {
    if (alias == p.alias) return p.name;
  }
  return anchored(upper(alias));
}

const std::vector<IntervalNameRow>& interval_names() {
  static const std::vector<IntervalNameRow> rows{
      {"OBS", "OBS", "observation numbers, counted as they are", ""},
      {"SECOND", "SECOND30", "half minutes of datetime values", "S, s"},
      {"MINUTE", "MINUTE15", "quarter hours", "T, min"},
      {"HOUR", "HOUR8.7", "eight-hour shifts from 06:00", "H, h"},
      {"DAY", "DAY", "days", "D"},
      {"WEEKDAY", "WEEKDAY17W", "working days; the digits name the weekend, 1 Sunday to 7 Saturday", "B"},
      {"WEEK", "WEEK.2", "weeks from Monday (a plain WEEK begins on Sunday)", "W-SAT (W-SUN: WEEK.2)"},
      {"WEEKV", "WEEKV", "ISO 8601 weeks, Monday to Sunday, in ISO years", ""},
      {"TENDAY", "TENDAY", "thirds of a month, from days 1, 11 and 21", ""},
      {"SEMIMONTH", "SEMIMONTH", "halves of a month, from days 1 and 16", ""},
      {"MONTH", "MONTH3.2", "three months from February, May, August and November", "M, ME, MS"},
      {"QTR", "QTR.2", "quarters from February", "Q, QS (Q-JAN: QTR.2)"},
      {"SEMIYEAR", "SEMIYEAR", "half years from January and July", ""},
      {"YEAR", "YEAR.7", "years from July", "A, YS (A-JUN: YEAR.7)"},
      {"YEARV", "YEARV", "ISO 8601 years of 52 or 53 weeks", ""},
      {"R445MON", "R445MON", "retail months of 4, 4 and 5 weeks (also R454MON, R544MON)", ""},
      {"R445QTR", "R445QTR", "retail quarters of 13 weeks (also R454QTR, R544QTR)", ""},
      {"R445YR", "R445YR", "retail years of ISO weeks (also R454YR, R544YR)", ""},
      {"DT", "DTMONTH", "a date interval over datetime values (DTDAY, DTWEEK, ...)", ""},
      {"custom", "MYCAL", "periods listed in a table: INTERVALDS=(MYCAL=LIB.TABLE)", ""},
  };
  return rows;
}

}  // namespace esf::runner
