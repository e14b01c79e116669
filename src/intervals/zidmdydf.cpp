// Month, day and year of a date in the civil calendar or in one of the
// retail calendars built on ISO weeks (4-4-5, 4-5-4, 5-4-4).

#include "host/host_dates.h"
#include "intervals/interval.h"

extern "C" int zidmdydf(int* m, int* d, int* y, double qordate, int format) {
  if (format == 0) return zidmdyd(m, d, y, qordate);

  double iso_year = 0.0;
  double iso_week = 0.0;
  double iso_day = 0.0;
  char convention[] = "V";
  zidywdd(qordate, convention, 1, &iso_year, &iso_week, &iso_day);
  // A date the host can't split leaves -1 behind; report it as the host does.
  if (iso_week < 1.0) return 1;
  *y = static_cast<int>(iso_year);

  const int* weeks = nullptr;  // zero-based ISO week that opens each retail month
  switch (format) {
    case 445:
      weeks = r445mon_index;
      break;
    case 454:
      weeks = r454mon_index;
      break;
    case 544:
      weeks = r544mon_index;
      break;
    default:
      return -2;
  }
  const int w = static_cast<int>(iso_week);  // [1, 53]
  int month = 0;                             // entries below w: [1, 12]
  while (month < 12 && weeks[month] < w) ++month;
  *m = month;
  *d = (w - weeks[month - 1] - 1) * 7 + static_cast<int>(iso_day);
  return 0;
}
