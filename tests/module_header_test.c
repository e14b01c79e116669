/* The module's C header, used from C: a program compiled as C11 includes
 * module/qorfmsm.h, links the image and calls a few of its routines through
 * the records the header defines.  The expected values are worked out by
 * hand from the calendar (day 0 is Friday 1 January 1960). */
#include <stdio.h>
#include <string.h>

#include "module/qorfmsm.h"

static int failures = 0;

static void expect(int ok, const char* what) {
  if (!ok) {
    fprintf(stderr, "failed: %s\n", what);
    ++failures;
  }
}

int main(void) {
  /* MONTH3.2: periods Feb-Apr, May-Jul, ..., 4 a year for 40 years from
   * 1960; the next begins on 1 February 1960. */
  {
    struct INTERVAL iv;
    char name[] = "MONTH3.2";
    char printed[32];
    int printed_len = (int)sizeof printed;
    memset(&iv, 0, sizeof iv);
    expect(zintstr(name, -1, &iv) == 0, "zintstr parses MONTH3.2");
    expect(iv.units == 'd' && iv.intcode == 45 && iv.intper == 3 && iv.shiftper == 1, "the record of MONTH3.2");
    expect(iv.tokenlen == 8 && memcmp(iv.token, name, 8) == 0, "the token");
    expect(zintck2(&iv, 0.0, 14610.0) == 160.0, "zintck2 counts the boundaries");
    expect(zintnx2(&iv, 0.0, 1.0) == 31.0, "zintnx2 advances by one interval");
    expect(zinti2s(printed, &printed_len, &iv) == 0 && printed_len == 8 && memcmp(printed, name, 8) == 0,
           "zinti2s prints the name");
  }

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
