// Date routines of the host environment.
//
// The host keeps time as doubles: a date value counts days since 1 January
// 1960 (a Friday), a datetime value counts seconds since 1 January 1960
// 00:00:00. These six routines convert between date values and calendar
// fields in the proleptic Gregorian calendar. They are exact over the
// calendar library's whole date range, -138061 (1 January 1582) to 6589335,
// and far beyond it.
//
// A missing value (two top bytes 0xFF) given as a date gives the ordinary
// missing value "." back; a routine that answers with a status reports it
// as a non-zero status instead.
//
//   zmdy(1, 1, 1960)           //  0.0
//   ziddmdy(2, 29, 2000)       //  14669.0
//   zidmdyd(&m, &d, &y, 0.0)   //  0, with m 1, d 1, y 1960
//   zwekday(0.0)               //  6.0 (Friday; 1 is Sunday, 7 Saturday)
//   zyear(-1.0)                //  1959.0
//   ztimprt(86399.5)           //  86399.5 seconds into the day
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// The date value of month, day and year, or "." when a part is missing,
// fractional, or the triple names no date (month 13, 30 February, ...).
double zmdy(double month, double day, double year);

// The date value of month, day and year as integers, or "." for a triple
// that names no date.
double ziddmdy(int month, int day, int year);

// Splits a date value (taken at its floor) into month, day and year.
// Returns 0 on success and 1 when the date is missing or too large to
// split; on failure the three outputs are set to 0.
int zidmdyd(int* m, int* d, int* y, double date);

// Weekday number of a date: 1 Sunday to 7 Saturday, or "." when missing.
double zwekday(double date);

// Calendar year of a date, or "." when missing.
double zyear(double date);

// Seconds since midnight of a datetime value, from 0 up to (not including)
// 86400, fractions kept; "." when missing.
double ztimprt(double datetime);

#ifdef __cplusplus
}
#endif
