/* The module's C header, used from C: a program compiled as C11 includes
 * module/qorfmsm.h, links the image and calls a few of its routines through
 * the records the header defines.  The expected values are worked out by
 * hand from the calendar (day 0 is Friday 1 January 1960). */
#include <stdio.h>
#include <string.h>

#include "module/qorfmsm.h"

static int failures = 0;

static const char* current = "";

static void expect(int ok, const char* what) {
  if (!ok) {
    fprintf(stderr, "failed: %s %s\n", current, what);
    ++failures;
  }
}

struct IntervalCase {
  const char* name;
  char units;
  int intcode;
  int intper;
  int shiftper;
  double from, to, count; /* zintck2(from, to) */
  double next;            /* zintnx2(from, 1) */
  const char* printed;    /* zinti2s */
};

static const struct IntervalCase kIntervals[] = {
    /* Periods Feb-Apr, May-Jul, ...: 4 a year for 40 years; Feb 1 1960 next. */
    {"MONTH3.2", 'd', 45, 3, 1, 0.0, 14610.0, 160.0, 31.0, "MONTH3.2"},
    /* 1 April 1960 follows 31 + 29 + 31 days of a leap year. */
    {"QTR", 'd', 50, 1, 0, 0.0, 14610.0, 160.0, 91.0, "QTR"},
    /* Weeks begin on Sunday: 3 and 10 January. A plain WEEK prints its 1. */
    {"WEEK", 'd', 30, 1, 0, 0.0, 14.0, 2.0, 2.0, "WEEK1."},
    /* The hours of two days; HOUR counts seconds with or without its DT. */
    {"DTHOUR", 's', 20, 1, 0, 0.0, 2.0 * 86400.0, 48.0, 3600.0, "HOUR"},
};

int main(void) {
  size_t i;
  for (i = 0; i < sizeof kIntervals / sizeof kIntervals[0]; ++i) {
    const struct IntervalCase* c = &kIntervals[i];
    struct INTERVAL iv;
    char printed[32];
    int printed_len = (int)sizeof printed;
    char name[32];
    current = c->name;
    memset(&iv, 0, sizeof iv);
    strcpy(name, c->name);
    expect(zintstr(name, -1, &iv) == 0, "zintstr parses the name");
    expect(iv.units == c->units, "units");
    expect(iv.intcode == c->intcode, "intcode");
    expect(iv.intper == c->intper, "intper");
    expect(iv.shiftper == c->shiftper, "shiftper");
    expect(iv.tokenlen == (short)strlen(c->name) && memcmp(iv.token, c->name, strlen(c->name)) == 0, "token");
    expect(zintck2(&iv, c->from, c->to) == c->count, "zintck2 counts the boundaries");
    expect(zintnx2(&iv, c->from, 1.0) == c->next, "zintnx2 advances by one interval");
    expect(zinti2s(printed, &printed_len, &iv) == 0 && printed_len == (int)strlen(c->printed) &&
               memcmp(printed, c->printed, strlen(c->printed)) == 0,
           "zinti2s prints the name");
  }

  current = "";

  /* The seasonal cycle of MONTH is YEAR with 12 seasons, in the record the
   * caller provides. */
  {
    struct INTERVAL month, cycle;
    int nseasons = 0;
    char name[] = "MONTH";
    memset(&month, 0, sizeof month);
    memset(&cycle, 0, sizeof cycle);
    expect(zintstr(name, -1, &month) == 0, "zintstr MONTH");
    expect(zintsea(&month, 0.0, &cycle, &nseasons) == 0, "zintsea finds a cycle");
    expect(nseasons == 12 && cycle.intcode == 60 && cycle.tokenlen == 4 && memcmp(cycle.token, "YEAR", 4) == 0,
           "the cycle of MONTH is YEAR, 12 seasons");
  }

  /* The missing-value table: "." is its second entry, and qkmissv_table
   * points into the exported record. */
  {
    const double dot = skMissVal('.');
    expect(wzmis(dot) == 1 && wzmis(1.0) == 0, "wzmis tells a missing value");
    expect(memcmp(&skmissv_struct.MissTable[1], &dot, sizeof dot) == 0, "'.' is entry 1 of the table");
    expect(qkmissv_table == skmissv_struct.MissTable, "qkmissv_table points at the table");
  }

  /* One step of simple smoothing: the prediction is the level, the error
   * prediction minus observation, the new level x w + L (1 - w). */
  {
    double level = 2.0, xhat = 0.0, e = 0.0;
    expect(zes1pnt(10.0, 1.0, 0.5, &level, &xhat, &e) == 0, "zes1pnt");
    expect(xhat == 2.0 && e == -8.0 && level == 6.0, "zes1pnt updates the level");
    expect(zprbnrm(0.0) == 0.5, "zprbnrm(0) is one half");
  }

  if (failures != 0) fprintf(stderr, "%d checks failed\n", failures);
  return failures == 0 ? 0 : 1;
}
