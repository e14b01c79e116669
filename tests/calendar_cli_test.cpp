// The calendar command of the host program, run as a user runs it: single
// queries on the command line and a stream of queries on standard input
// (the messages of bad queries: bad_input_cli_test.cpp).
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/cli_run.h"

namespace {

using CliRun = support::CliOutcome;

// Runs `esforecast calendar ARGS` with `input` on standard input.
CliRun calendar(const std::string& args, const std::string& input = "") {
  const support::ScratchDir dir("esf_calendar_cli");
  std::vector<std::string> words = {"calendar"};
  std::istringstream in(args);
  for (std::string w; in >> w;) words.push_back(w);
  return support::run_cli(dir.path, words, input);
}

// ---- Single queries ---------------------------------------------------------------

TEST(CalendarCli, SingleQueries) {
  const struct {
    const char* args;
    const char* answer;
  } cases[] = {
      // The answers themselves are the interval tests'; these rows are the
      // kinds of values, the words of each query and the spelled-out words.
      {"count DTHOUR 2001-01-01T10:59:59 2001-01-01T11:00:00", "1"},
      {"count MONTH . 2001-02-01", "."},
      {"count DAY 1582-01-01 20000-12-26", "6727396"},
      {"advance MONTH 2001-01-31 1 same", "2001-02-28"},
      {"advance DTHOUR 2001-01-01T10:30:00.25 1 S", "2001-01-01T11:30:00.25"},
      {"--raw advance MONTH 2001-03-15 1", "15066"},
      {"parse Weekday17w2.2",
       "text=WEEKDAY2.2 intcode=27 units=d intper=2 shiftper=1 nweekday=5 weekend=17 token=Weekday17w2.2"},
      {"fit 2001-01-01 2001-04-01", "interval=QTR cycle=YEAR nseasons=4 format=YYQC width=6"},
      {"fit 5 8", "interval=OBS3.3 cycle=- nseasons=0 format=F width=6"},
      {"cycle MONTH 3", "cycle=QTR nseasons=3"},
      {"season MONTH 2001-03-15 5", "season=4 cycle=MONTH5 nseasons=5 period_start=2001-03-01 cycle_start=2000-11-01"},
      {"compare QTR MONTH", "result=3 meaning=every QTR holds 3 MONTH"},
      {"compare QTR.2 MONTH2", "result=.M meaning=the lengths are not multiples of each other"},
      {"format QTR", "format=YYQC width=6 short_width=4 duration_format=YYQC duration_width=6 duration_short_width=4"},
      // A pandas alias (the Python tests check the mapping against pandas).
      {"advance W-SUN 2001-05-09 0", "2001-05-07"},  // weeks end on Sunday
  };
  for (const auto& c : cases) {
    const CliRun r = calendar(c.args);
    EXPECT_EQ(r.status, 0) << c.args << "\n" << r.err;
    EXPECT_EQ(r.out, std::string(c.answer) + "\n") << c.args;
  }
}

// ---- Streams ------------------------------------------------------------------------------

TEST(CalendarCli, StreamAnswersLineByLineAndGoesOnAfterErrors) {
  const CliRun r = calendar("",
                            "count DAY 2001-01-01 2001-12-31\n"
                            "advance WEEKDAY 2001-03-03 1\n"
                            "bogus MONTH 1 2\n"
                            "\n"
                            "# a comment line\n"
                            "advance YEAR 2000-02-29 1 S\r\n"
                            "count MONTH 2001-01-01 2001-99-01\n"
                            "advance MONTH . 1 E\n");
  EXPECT_NE(r.status, 0) << "a stream with bad lines ends with a failure status";
  // One line for each line read: an answer, an error or nothing.
  EXPECT_EQ(r.out,
            "364\n2001-03-05\n"
            "error: line 3, field 1 (OPERATION): \"bogus\" is not an operation: count, advance, parse, format, fit, "
            "cycle, season, compare or names\n"
            "\n\n2001-02-28\n"
            "error: line 7, field 4 (X2): \"2001-99-01\" is not a date or datetime (YYYY-MM-DD, "
            "YYYY-MM-DDTHH:MM[:SS[.fff]] or YYYY-MM) or a number\n"
            ".\n");
  EXPECT_NE(r.err.find("2 lines of standard input could not be answered"), std::string::npos) << r.err;
}

}  // namespace
