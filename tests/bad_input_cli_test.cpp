// Bad input at the command line, one row per class: the exit status, the
// first words of the first message (after any warnings), nothing on standard
// output after a failure, and an output file that was there before left as
// it was. Each row runs in a fresh directory holding s.csv (the monthly
// airline series), q.csv (a quarterly series) and out.csv; $E is the program,
// which the command line follows. A message of the form "head*tail" must
// start with head and hold tail further on.
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <sys/wait.h>

#include "support/file_text.h"

namespace {

namespace fs = std::filesystem;

using support::slurp;

// The first line of standard error that is not a warning.
std::string first_message(const std::string& err) {
  std::istringstream in(err);
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind("warning: ", 0) != 0) return line;
  }
  return "";
}

struct Row {
  const char* what;
  const char* setup;    // shell commands run first in the directory
  const char* command;  // the command line after $E
  int status;
  const char* message;  // "" when nothing may be said but warnings
};

// A custom interval FISCAL from the table fiscal.csv.
#define FISCAL "export ESF_OPTION_INTERVALDS='(fiscal=fiscal)'; "
#define CUSTOM_QUERY "calendar count FISCAL 2020-01-15 2020-03-10"
#define CAL "esforecast calendar: command line, field "
#define MODEL "$E fit s.csv --interval MONTH --model winters --save-model m.json >/dev/null 2>&1; "

const Row kRows[] = {
    // Files that cannot be read as a series.
    {"missing file", "", "forecast none.csv --interval MONTH -o out.csv", 1,
     "esforecast forecast: none.csv: cannot open the file"},
    {"empty file", ": > e.csv", "forecast e.csv --interval MONTH -o out.csv", 1,
     "esforecast forecast: e.csv: line 1: the file has no header line"},
    {"header only", "head -1 s.csv > h.csv", "forecast h.csv --interval MONTH -o out.csv", 1,
     "esforecast forecast: h.csv: line 1: the file has no data rows"},
    {"no header", "tail -n +2 s.csv > n.csv", "forecast n.csv --interval MONTH -o out.csv", 1,
     "esforecast forecast: the file has no header line: line 1 holds data"},
    {"short row", "sed '3s/,.*//' s.csv > r.csv", "forecast r.csv --interval MONTH -o out.csv", 1,
     "esforecast forecast: r.csv: line 3: 1 field(s) where the header has 2"},
    {"no such column", "", "forecast s.csv --interval MONTH --var sales -o out.csv", 1,
     "esforecast forecast: s.csv: line 1: no column named \"sales\""},
    {"empty time ID", "sed '3s/^[^,]*//' s.csv > t.csv", "forecast t.csv --interval MONTH -o out.csv", 1,
     "esforecast forecast: t.csv: line 3, column \"date\": the time ID is empty"},
    // The mark is dropped before the header is read.
    {"impossible date after a byte-order mark", "printf '\\357\\273\\277date,value\\n1949-13-01,1\\n' > b.csv",
     "forecast b.csv --interval MONTH -o out.csv", 1,
     "esforecast forecast: b.csv: line 2, column \"date\": \"1949-13-01\" is not a date"},
    {"NUL byte in a field", "printf 'date,value\\n1949-01-01,a\\000b\\n' > v.csv",
     "forecast v.csv --interval MONTH -o out.csv", 1, "esforecast forecast: v.csv: line 2*\"a\\x00b\" is not a number"},
    {"100 kB field",
     "awk 'BEGIN{printf \"date,value\\n1949-01-01,\"; for(i=0;i<100000;i++) printf \"x\"; print \"\"}' > v.csv",
     "forecast v.csv --interval MONTH -o out.csv", 1, "esforecast forecast: v.csv: line 2*(cut; 100000 bytes in all)"},
    {"duplicate period", "sed '3s/^1949-02-01/1949-01-15/' s.csv > d.csv", "forecast d.csv --interval MONTH -o out.csv",
     1, "esforecast forecast: d.csv: lines 2 and 3*fall in the same period"},
    {"date before the calendar", "sed '2s/^1949/1581/' s.csv > d.csv", "forecast d.csv --interval MONTH -o out.csv", 1,
     "esforecast forecast: d.csv: line 2*lies outside the calendar's dates"},
    {"all missing", "awk -F, 'NR==1{print;next}{print $1\",.\"}' s.csv > m.csv",
     "forecast m.csv --interval MONTH -o out.csv", 4, "esforecast forecast: the simple fit failed: too few usable"},
    {"1e308 values", "awk -F, 'NR==1{print;next}{print $1\",1e308\"}' s.csv > b.csv",
     "forecast b.csv --interval MONTH -o out.csv", 1,
     "esforecast forecast: the simple model cannot be fitted: b.csv, line 2, field \"value\" holds 1e+308, too large"},
    {"31 years of seconds", "printf 't,v\\n1960-01-01T00:00:00,1\\n1991-05-15T00:00:00,2\\n' > t.csv",
     "forecast t.csv --interval DTSECOND -o out.csv", 1,
     "esforecast forecast: the series spans more than 10000000 periods"},
    {"time ID named like a table column", "sed '1s/date/actual/' s.csv > a.csv", "forecast a.csv --interval MONTH", 0,
     ""},
    {"unknown interval", "", "forecast s.csv --interval MONHT -o out.csv", 1,
     "esforecast forecast: --interval: \"MONHT\" is not an interval name"},
    {"negative lead", "", "forecast s.csv --interval MONTH --lead -1 -o out.csv", 1,
     "esforecast forecast: --lead: -1 is not a number of periods"},
    {"lead past the calendar", "", "forecast s.csv --interval MONTH --lead 1000000 -o out.csv", 1,
     "esforecast forecast: --lead: 1000000 periods of MONTH*run past the calendar's dates"},
    {"--cl outside (0, 1)", "", "forecast s.csv --interval MONTH --cl 1.5 -o out.csv", 1,
     "esforecast forecast: --cl: 1.5 is not a significance level"},
    {"NaN weight", "", "forecast s.csv --interval MONTH --level-weight nan -o out.csv", 1,
     "esforecast forecast: --level-weight: nan is not a smoothing weight"},
    {"bound above 1", "", "forecast s.csv --interval MONTH --level-bounds 0.5,2 -o out.csv", 1,
     "esforecast forecast: --level-bounds: 2 is not a smoothing weight"},
    {"factors of the wrong count", "",
     "forecast s.csv --interval MONTH --model winters --start-factors 1,1,1 -o out.csv", 1,
     "esforecast forecast: --start-factors: 3 factors given for a cycle of 12 seasons"},
    {"a zero multiplicative factor", "",
     "forecast s.csv --interval MONTH --model winters --start-factors 0,1,1,1,1,1,1,1,1,1,1,1 -o out.csv", 1,
     "esforecast forecast: --start-factors: factor 1 is 0"},
    {"NaN start level", "", "forecast s.csv --interval MONTH --start-level nan -o out.csv", 1,
     "esforecast forecast: --start-level: nan is not a finite number"},
    {"a cycle of one season", "", "fit s.csv --interval MONTH --model winters --nseasons 1 --save-model out.csv", 1,
     "esforecast fit: --nseasons: 1 is not a seasonal cycle"},
    {"a cycle of a million seasons", "", "fit s.csv --interval MONTH --model winters --nseasons 1000000", 1,
     "esforecast fit: the winters model cannot be fitted: a cycle of 1000000 seasons"},
    {"an empty fit range", "", "forecast s.csv --interval MONTH --fit-start 1960-01-01 --fit-end 1950-01-01 -o out.csv",
     1, "esforecast forecast: --fit-start/--fit-end: the fit range"},
    {"a zero and a negative value, multiplicative Winters", "sed '6s/,.*/,0/; 8s/,.*/,-5/' s.csv > n.csv",
     "fit n.csv --interval MONTH --model winters --save-model out.csv", 1,
     "esforecast fit: the winters model cannot be fitted: the multiplicative Winters model needs values above 0*n.csv, "
     "line 6, field \"value\" holds 0"},
    {"a zero and a negative value, additive Winters", "sed '6s/,.*/,0/; 8s/,.*/,-5/' s.csv > n.csv",
     "fit n.csv --interval MONTH --model winters-additive", 0, ""},
    {"less than two cycles", "head -10 s.csv > n.csv", "fit n.csv --interval MONTH --model winters", 1,
     "esforecast fit: the winters model cannot be fitted: a seasonal model needs at least two full cycles"},
    {"a one-season interval", "awk -F, 'NR==1{print;next} NR<32{print 1900+NR\"-01-01,\"$2}' s.csv > y.csv",
     "fit y.csv --interval YEAR --model seasonal", 1,
     "esforecast fit: the seasonal model cannot be fitted: a seasonal model needs a cycle of at least 2 seasons"},
    {"a cycle over half the observations", "", "fit s.csv --interval MONTH --model winters-additive --nseasons 200", 1,
     "esforecast fit: the winters-additive model cannot be fitted: a cycle of 200 seasons is more than half"},
    {"start and backcast values", "", "forecast s.csv --interval MONTH --start-level 100 --backcast-level 90", 1,
     "esforecast forecast: --start-* and --backcast-* contradict each other"},
    {"unknown model", "", "fit s.csv --interval MONTH --model holt", 1,
     "esforecast fit: --model: \"holt\" is not a model"},
    {"a weight the model lacks", "", "fit s.csv --interval MONTH --trend-weight 0.2", 1,
     "esforecast fit: --trend-weight/--trend-bounds: the simple model has no trend weight"},
    {"a date option that is not a date", "", "fit s.csv --interval MONTH --fit-start 'June 1950'", 1,
     "esforecast fit: --fit-start: \"June 1950\" is not a date"},
    // Outputs.
    {"output is the input by another path", "mkdir sub", "forecast s.csv --interval MONTH -o ./sub/../s.csv", 1,
     "esforecast forecast: the output would replace the input s.csv"},
    {"saved model over the input", "", "fit s.csv --interval MONTH --save-model s.csv", 1,
     "esforecast fit: the output would replace the input s.csv"},
    {"output is a directory", "mkdir sub", "forecast s.csv --interval MONTH -o sub", 1,
     "esforecast forecast: the output is a directory"},
    {"unwritable output", "", "forecast s.csv --interval MONTH -o /nonexistent/out.csv", 1,
     "esforecast forecast: cannot write in the directory /nonexistent"},
    {"full standard output", "", "forecast s.csv --interval MONTH >/dev/full", 1,
     "esforecast: writing to standard output failed"},
    // Model files.
    {"truncated model file", MODEL "head -c 100 m.json > t.json", "forecast s.csv --model-file t.json -o out.csv", 1,
     "esforecast forecast: t.json: not a model file"},
    {"foreign model file", "echo '{\"a\":1}' > f.json", "forecast s.csv --model-file f.json -o out.csv", 1,
     "esforecast forecast: f.json: not a model file"},
    {"model file is a directory", "mkdir m.json", "forecast s.csv --interval MONTH --model-file m.json -o out.csv", 1,
     "esforecast forecast: the model file is a directory"},
    {"model weight of the wrong type", MODEL "sed -E 's/\"LEVEL\": [0-9.e-]+/\"LEVEL\": \"x\"/' m.json > w.json",
     "forecast s.csv --model-file w.json -o out.csv", 1, "esforecast forecast: not a model file: the LEVEL weight"},
    {"model weight no method can use", MODEL "sed -E 's/\"LEVEL\": [0-9.e-]+/\"LEVEL\": 150/' m.json > w.json",
     "forecast s.csv --model-file w.json -o out.csv", 1,
     "esforecast forecast: not a model file: the LEVEL weight is \"150\", not a number from -100 to 100: w.json"},
    {"model of another family", MODEL ":", "forecast s.csv --interval MONTH --model simple --model-file m.json", 1,
     "esforecast forecast: m.json: the file holds a winters model, not simple"},
    {"model of another interval", MODEL ":", "forecast q.csv --interval QTR --model-file m.json -o out.csv", 1,
     "esforecast forecast: the model was fitted on interval \"MONTH\", not \"QTR\""},
    // Calendar queries on the command line (a stream goes on after a bad
    // line: calendar_cli_test.cpp).
    {"calendar date out of range", "", "calendar count MONTH 2001-13-01 2001-02-01", 1,
     CAL "3 (X1): \"2001-13-01\" is not a date"},
    {"calendar second out of range", "", "calendar count DTHOUR 2001-01-01T10:15:60 2001-01-01", 1,
     CAL "3 (X1): \"2001-01-01T10:15:60\" is not a date"},
    {"calendar unknown interval", "", "calendar count MONTHX 2001-01-01 2001-02-01", 1,
     CAL "2 (INTERVAL): \"MONTHX\": not a known interval name (result 103)"},
    {"calendar word missing", "", "calendar count MONTH 2001-01-01", 1, CAL "4: count takes INTERVAL X1 X2"},
    {"calendar count not a number", "", "calendar advance MONTH 2001-01-01 one", 1,
     CAL "4 (N): \"one\" is not a number"},
    {"calendar unknown alignment", "", "calendar advance MONTH 2001-01-01 1 Q", 1,
     CAL "5 (ALIGN): \"Q\" is not an alignment"},
    {"calendar date for observations", "", "calendar advance OBS 2001-01-01 1", 1,
     CAL "3 (X): \"2001-01-01\" is a date, but this interval counts plain numbers"},
    {"calendar unknown operation", "", "calendar subtract MONTH 1 2", 1,
     CAL "1 (OPERATION): \"subtract\" is not an operation"},
    {"calendar multiplier 0", "", "calendar parse MONTH0", 1, CAL "2 (INTERVAL): \"MONTH0\": the multiplier is 0"},
    {"calendar fit backwards", "", "calendar fit 2001-01-02 2001-01-01", 1,
     CAL "3 (X2): '2001-01-01' must lie at least one unit after '2001-01-02'"},
    {"calendar fractional cycle", "", "calendar cycle MONTH 7.5", 1,
     CAL "3 (NSEASONS): '7.5' is not a number of seasons"},
    {"calendar cycle of one season", "", "calendar season MONTH 2001-03-15 1", 1,
     CAL "4 (NSEASONS): '1' is not a number of seasons"},
    // Custom interval tables, read by a calendar query (the queries themselves:
    // calendar_cli_test.cpp; letters and seasons out of range: custom_test.cpp).
    {"table format width overflow",
     FISCAL "awk 'BEGIN{printf \"BEGIN:DATE\"; for(i=0;i<100;i++) printf \"9\"; print \".\"; print \"2020-01-06\"}' > "
            "fiscal.csv",
     CUSTOM_QUERY, 1, "ERROR: status 0x80010005:*has a width or decimals above 32767"},
    {"table BEGIN 1e308", FISCAL "printf 'BEGIN\\n2020-01-06\\n1e308\\n' > fiscal.csv", CUSTOM_QUERY, 1,
     "ERROR: status 0x8000080C: a BEGIN or END value is not a date within the calendar*line 3, field 1 (BEGIN)"},
    {"table with a byte-order mark",
     FISCAL "printf '\\357\\273\\277BEGIN\\n2020-01-06\\n2020-02-03\\n2020-03-02\\n' > fiscal.csv", CUSTOM_QUERY, 0,
     ""},
};

class BadInputCli : public ::testing::TestWithParam<Row> {};

TEST_P(BadInputCli, ExitsWithItsStatusAndMessageAndKeepsTheOutput) {
  const Row& row = GetParam();
  const support::ScratchDir scratch("esf_bad");
  const fs::path& dir = scratch.path;
  fs::copy_file(fs::path(ESF_SOURCE_DIR) / "examples/AirPassengers.csv", dir / "s.csv");
  fs::copy_file(fs::path(ESF_SOURCE_DIR) / "examples/UKgas.csv", dir / "q.csv");
  std::ofstream(dir / "out.csv") << "previous\n";
  const std::string series = slurp(dir / "s.csv");
  // The harness's redirections come first, so that a row's own win.
  const std::string script = "cd '" + dir.string() + "' && E='" + ESF_CLI + "' && " + row.setup +
                             (*row.setup ? "; " : "") + "\"$E\" >stdout.txt 2>stderr.txt " + row.command;
  const int raw = std::system(script.c_str());
  const int status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  const std::string err = slurp(dir / "stderr.txt");
  EXPECT_EQ(status, row.status) << err;
  const std::string line = first_message(err);
  const std::string expected = row.message;
  const auto star = expected.find('*');
  EXPECT_EQ(expected.empty() ? line : line.substr(0, std::min(star, expected.size())), expected.substr(0, star)) << err;
  if (star != std::string::npos) {
    EXPECT_NE(line.find(expected.substr(star + 1), star), std::string::npos) << err;
  }
  if (row.status != 0) {
    EXPECT_EQ(slurp(dir / "stdout.txt"), "");
  }
  EXPECT_EQ(slurp(dir / "out.csv"), "previous\n");
  EXPECT_EQ(slurp(dir / "s.csv"), series);
  // No temporary file is left behind.
  for (const auto& entry : fs::directory_iterator(dir)) {
    EXPECT_NE(entry.path().filename().string().rfind(".esforecast-", 0), 0u) << entry.path();
  }
}

INSTANTIATE_TEST_SUITE_P(Rows, BadInputCli, ::testing::ValuesIn(kRows), [](const auto& test) {
  std::string name;
  for (const char* p = test.param.what; *p != '\0'; ++p) {
    name += std::isalnum(static_cast<unsigned char>(*p)) ? *p : '_';
  }
  return name;
});

}  // namespace
