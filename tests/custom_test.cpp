// Custom intervals from real CSV tables registered through the option
// INTERVALDS: the option's mappings, the task's registry and its cache with
// reference counts, the loader and its refusals, and the arithmetic through
// the public calendar routines checked against a walk over the table.
// Also the catalogue of format names, and the time-ID check.
#include "custom/custom.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/host.h"
#include "support/interval_cases.h"

namespace fs = std::filesystem;

namespace {

const double kDot = esf::kMissing;
double mv(char letter) { return esf::missing_letter(letter); }

using cases::same;
using cases::show;
#define EXPECT_SAME(a, b) EXPECT_TRUE(same((a), (b))) << show(a) << " vs " << show(b)

class CustomTest : public ::testing::Test {
 protected:
  void SetUp() override {
    static const bool connected = [] {
      mcn_main(reinterpret_cast<ptr*>(esf::host::gcb_anchor()), reinterpret_cast<ptr>(esf::host::pidb()));
      return true;
    }();
    (void)connected;
    dir_ = fs::temp_directory_path() / ("esf_custom_" + std::to_string(::getpid()) + "_" +
                                        ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(dir_);
    esf::host::assign_libref("CUSTT", dir_);
    esf::host::capture_output(true);
    esf::host::end_task();
  }
  void TearDown() override {
    // Every reference taken to a cached table has been given back.
    EXPECT_EQ(esf::host::cached_interval_references(), 0);
    esf::host::clear_option("INTERVALDS");
    esf::host::end_task();
    // Ending the task destroys the manager with its cache and tables.
    EXPECT_EQ(esf::host::live_interval_caches(), 0u);
    esf::host::take_log();
    esf::host::capture_output(false);
    std::error_code ec;
    fs::remove_all(dir_, ec);
  }

  void write_table(const std::string& member, const std::string& text) {
    std::ofstream(dir_ / (member + ".csv")) << text;
  }
  // Sets the option for a new task: the manager reads it when created.
  void use(const std::string& option) {
    esf::host::set_option("INTERVALDS", option);
    esf::host::end_task();
  }

  fs::path dir_;
};

// ---- Format catalogue --------------------------------------------------------

TEST(FormatCatalogue, TypesAndUnitsOfNames) {
  const struct {
    const char* name;
    int len;
    int type;
    char units;
  } cases[] = {
      {"DATE ", 5, 8, 'd'}, {"date", 4, -1, 0}, {"DATETIME", 8, 10, 's'}, {"TIME", 4, 9, 's'},
      {"BEST", 4, 4, 'o'},  {"$CHAR", 5, 0, 0}, {"DATE9", 5, -1, 0},      {"$ANYDTIF", 8, 8, 'd'},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::string name = c.name;
    EXPECT_EQ(zfmttype(name.data(), c.len), c.type);
    EXPECT_EQ(zfmtunits(name.data(), c.len), c.units);
  }
}

// ---- Option text -----------------------------------------------------------------

struct Mapping {
  std::string interval, lib, member;
};

std::string name_of(const u_sname& n) { return std::string(n.name, static_cast<size_t>(n.name_l)); }

TEST_F(CustomTest, OptionTextGivesMappings) {
  const std::string long_name(40, 'X');
  const struct {
    std::string option;
    std::vector<Mapping> maps;
    int room = 4;  // the room given bounds the count
  } cases[] = {
      {"(MYCAL=WORK.CAL MYWK=WEEKS)", {{"MYCAL", "WORK", "CAL"}, {"MYWK", "", "WEEKS"}}},
      {"mycal = custt.cal, other=lib.t2", {{"MYCAL", "CUSTT", "CAL"}, {"OTHER", "LIB", "T2"}}},
      {"(A=B C)", {{"A", "", "B"}}},  // a name without a table ends the text
      {"", {}},
      {long_name + "=T", {{std::string(32, 'X'), "", "T"}}},
      {"(A=B C=D E=F)", {{"A", "", "B"}, {"C", "", "D"}}, 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.option);
    esf::host::set_option("INTERVALDS", c.option);
    CUSTOMINTERVAL got[4];
    int n = c.room;
    parseIntervalOptions(got, &n);
    ASSERT_EQ(n, static_cast<int>(c.maps.size()));
    for (int i = 0; i < n; ++i) {
      EXPECT_EQ(name_of(got[i].interval), c.maps[static_cast<size_t>(i)].interval);
      EXPECT_EQ(name_of(got[i].lib), c.maps[static_cast<size_t>(i)].lib);
      EXPECT_EQ(name_of(got[i].member), c.maps[static_cast<size_t>(i)].member);
    }
  }
}

// ---- Registry ------------------------------------------------------------------

TEST_F(CustomTest, RegisteredNamesAreKnownWithoutRegardToCase) {
  char mycal[] = "MYCAL";
  EXPECT_EQ(getcustomname(mycal, 5), 0);  // no option: an empty registry
  EXPECT_EQ(esf::host::live_interval_caches(), 1u);

  use("(mycal=custt.cal MyWk=weeks)");
  const struct {
    const char* name;
    int answer;
  } cases[] = {{"mycal", kIntCustom}, {"MYWK", kIntCustom}, {"MYCALX", 0}, {"MYCA", 0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::string name = c.name;
    EXPECT_EQ(getcustomname(name.data(), static_cast<int>(name.size())), c.answer);
  }
  // One manager for the task; ending it destroys the manager.
  ZQKECINTC* a = nullptr;
  ASSERT_EQ(zcintcInit(&a), 0);
  EXPECT_EQ(GetPtr(), a);
  zcintcTerm();
  EXPECT_EQ(esf::host::live_interval_caches(), 0u);
}

// ---- Loader and cache ------------------------------------------------------------

// Loads of one table share one cached copy, counted, whatever the case and
// the multiplier of the name; a name without a mapping loads nothing. (What
// the rows hold, the tests below read through the calendar routines.)
TEST_F(CustomTest, LoadsTablesOnceAndCountsReferences) {
  write_table("full", "BEGIN:DATE9.,END,SEASON\n100,109,1\n200,209,2\n");
  use("(FULL=CUSTT.FULL)");
  const auto load = [](const char* token) {
    INTERVAL iv{};
    std::memcpy(iv.token, token, std::strlen(token));
    iv.tokenlen = static_cast<short>(std::strlen(token));
    iv.intper = 1;
    CINTCInfo* info = reinterpret_cast<CINTCInfo*>(&iv);  // stale, to be replaced
    EXPECT_EQ(zcustLoad(&iv, &info), 0) << token;
    return info;
  };
  EXPECT_EQ(load("NOSUCH"), nullptr);
  CINTCInfo* first = load("FULL2.2");
  CINTCInfo* second = load("full");
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first, second);
  EXPECT_EQ(esf::host::cached_interval_references(), 2);
  EXPECT_EQ(first->nused, 2);
  EXPECT_EQ(std::string(first->fmt, first->fmt + first->fmt_l), "DATE");
  EXPECT_EQ(first->fmt_w, 9);
  zcintcReleaseRef(first);
  zcintcReleaseRef(second);
}

TEST_F(CustomTest, BadTablesFailWithTheirStatus) {
  write_table("empty", "BEGIN\n");
  write_table("nobegin", "START,END\n1,2\n");
  write_table("letters", "BEGIN\n100\nabc\n");
  write_table("season", "BEGIN,SEASON\n100,1\n200,1e9\n");
  const struct {
    const char* name;
    int status;
    const char* logged;
  } cases[] = {
      {"EMPTY", kCintcNoRows, "0x8000080B"},
      {"NOBEGIN", static_cast<int>(0x80010008u), "no variable BEGIN"},
      {"LETTERS", static_cast<int>(0x80010005u), "line 3, field 1"},
      {"MISSING", static_cast<int>(0x80010004u), "missing.csv"},
      {"SEASON", kCintcBadSeason, "line 3, field 2 (SEASON)"},
  };
  use("(EMPTY=CUSTT.EMPTY NOBEGIN=CUSTT.NOBEGIN LETTERS=CUSTT.LETTERS MISSING=CUSTT.MISSING SEASON=CUSTT.SEASON)");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    esf::host::take_log();
    INTERVAL iv{};
    std::memcpy(iv.token, c.name, std::strlen(c.name));
    iv.tokenlen = static_cast<short>(std::strlen(c.name));
    iv.intper = 1;
    CINTCInfo* info = nullptr;
    EXPECT_EQ(zcustLoad(&iv, &info), c.status);
    EXPECT_EQ(info, nullptr);
    // Nothing is left in the cache: the next load fails the same way.
    EXPECT_EQ(zcustLoad(&iv, &info), c.status);
    // The parser answers -1 and the host reports the status, once.
    esf::host::take_log();
    EXPECT_EQ(cases::parse(c.name).rc, -1);
    const std::string log = esf::host::take_log();
    EXPECT_NE(log.find(c.logged), std::string::npos) << log;
    EXPECT_EQ(log.find('\n'), log.size() - 1) << log;
  }
}

// ---- Names -------------------------------------------------------------------------

TEST_F(CustomTest, CustomNamesParseAndPrint) {
  write_table("dcal", "BEGIN\n100\n200\n300\n");
  write_table("tcal", "BEGIN\n100000\n200000\n");
  write_table("ncal", "BEGIN:BEST12.\n1\n5\n");
  use("(DCAL=CUSTT.DCAL TCAL=CUSTT.TCAL NCAL=CUSTT.NCAL)");
  const struct {
    const char* text;
    char units;
    int intper, shiftper;
    const char* format;
  } cases[] = {
      {"dcal", 'd', 1, 0, "DATE"},     {"DCAL3.2", 'd', 3, 1, "DATE"}, {"Dcal2", 'd', 2, 0, "DATE"},
      {"TCAL", 's', 1, 0, "DATETIME"}, {"NCAL", 'o', 1, 0, "F"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const INTERVAL iv = oracle::interval(c.text);
    EXPECT_EQ(iv.intcode, kIntCustom);
    EXPECT_EQ(iv.units, c.units);
    EXPECT_EQ(iv.intper, c.intper);
    EXPECT_EQ(iv.shiftper, c.shiftper);
    char printed[32];
    int len = sizeof printed;
    ASSERT_EQ(zinti2s(printed, &len, const_cast<INTERVAL*>(&iv)), 0);
    EXPECT_EQ(std::string(printed, static_cast<size_t>(len)), c.text);
    // The interval's default format is its table's, or DATE or DATETIME by
    // the size of its dates, multiple or not; plain numbers keep theirs.
    char fmt[32];
    short fl = 0, w1 = 0, w2 = 0;
    zintfmt(const_cast<INTERVAL*>(&iv), fmt, &fl, &w1, &w2);
    EXPECT_EQ(std::string(fmt, static_cast<size_t>(fl)), c.format);
    EXPECT_GT(w1, 0);
  }
  // The tail of a custom name follows the rules of the standard names; a
  // custom name is never stripped of a prefix.
  const struct {
    const char* text;
    int rc;
  } refused[] = {{"DCALX", 103}, {"DTDCAL", 103}, {"DCAL0", 1}, {"DCAL.2", 2}, {"DCAL2.3", 2}, {"DCAL1W", 102}};
  for (const auto& r : refused) EXPECT_EQ(cases::parse(r.text).rc, r.rc) << r.text;
}

// ---- Arithmetic against a walk over the table -------------------------------------------

// A table of irregular periods with seasons 1..12, and the answers a walk
// over its rows gives for an interval of m rows with the first group
// shifted by s rows.
struct Walk {
  std::vector<double> begin;  // rows 1..N at [0..N-1]
  std::vector<int> season;
  long N() const { return static_cast<long>(begin.size()); }

  // Rows whose begin is at or before x: 0 before the table, N after it.
  long row(double x) const {
    long r = 0;
    while (r < N() && begin[static_cast<size_t>(r)] <= x) ++r;
    return r;
  }
  static long group(long r, long m, long s) {
    return static_cast<long>(std::ceil(static_cast<double>(r - s) / static_cast<double>(m)));
  }
  long last_first(long m, long s) const { return N() - ((N() - s - 1) % m); }
  double begin_of(long k, long m, long s) const {
    if (k < 0) return kDot;
    if (k == 0) return mv('M');
    const long first = s + 1 + (k - 1) * m;
    if (first > last_first(m, s)) return kDot;
    return begin[static_cast<size_t>(first - 1)];
  }
  double end_of(long k, long m, long s) const {
    if (k < 0) return kDot;
    if (k == 0) {
      if (s == 0) return begin[0] - 1;
      return s == N() ? mv('I') : begin[static_cast<size_t>(s)] - 1;
    }
    const long first = s + 1 + (k - 1) * m;
    if (first > last_first(m, s)) return kDot;
    if (first == last_first(m, s)) return mv('I');
    return begin[static_cast<size_t>(k * m + s)] - 1;
  }
};

// The same periods written twice: BEGIN alone, and BEGIN with END, where
// the period after the last row begins the day after its END.
TEST_F(CustomTest, CountsAndAdvancesAsTheTableWalks) {
  Walk w;
  std::mt19937 gen(20260101);
  std::uniform_int_distribution<int> length(20, 40);
  double d = 21915;  // 2020-01-01
  for (int r = 0; r < 30; ++r) {
    w.begin.push_back(d);
    d += length(gen);
  }
  std::string plain = "BEGIN:DATE9.\n";
  std::string ended = "BEGIN,END\n";
  for (size_t r = 0; r < w.begin.size(); ++r) {
    plain += std::to_string(static_cast<long>(w.begin[r])) + "\n";
    if (r + 1 < w.begin.size()) {
      ended += std::to_string(static_cast<long>(w.begin[r])) + "," +
               std::to_string(static_cast<long>(w.begin[r + 1] - 1)) + "\n";
    }
  }
  write_table("fisc", plain);
  write_table("fise", ended);
  use("(FISC=CUSTT.FISC FISE=CUSTT.FISE)");

  const struct {
    const char* name;
    long m, s;
  } intervals[] = {{"FISC", 1, 0}, {"FISC2", 2, 0}, {"FISC3.2", 3, 1}, {"fisc4.4", 4, 3},
                   {"FISE", 1, 0}, {"FISE2", 2, 0}, {"fise3.3", 3, 2}, {"FISE5.2", 5, 1}};
  const double lo = w.begin.front() - 45;
  const double hi = w.begin.back() + 45;
  for (const auto& iv_case : intervals) {
    SCOPED_TRACE(iv_case.name);
    INTERVAL iv = oracle::interval(iv_case.name);
    const long m = iv_case.m, s = iv_case.s;
    for (double x = lo; x <= hi; x += 7) {
      const long gx = Walk::group(w.row(x), m, s);
      // A value inside a day lies in the day's period.
      for (double y = lo; y <= hi; y += 53) {
        ASSERT_EQ(zintck2(&iv, x + 0.25, y + 0.5), static_cast<double>(Walk::group(w.row(y), m, s) - gx))
            << x << " " << y;
      }
      for (double n = -3; n <= 3; ++n) {
        const long k = gx + static_cast<long>(n);
        const double b = w.begin_of(k, m, s);
        const double e = w.end_of(k, m, s);
        double middle = esf::is_missing(e) ? e : std::floor((b + e) / 2);
        if (esf::is_missing(b)) middle = kDot;
        // `into` places the date inside its day, as on a datetime's date.
        const struct {
          const char* align;
          double into, want;
        } alignments[] = {{"B", 0, b},      {"BEGIN", 0.5, b},   {"E", 0, e},
                          {"END", 0.75, e}, {"M", 0.75, middle}, {"S", 0, b}};
        EXPECT_SAME(zintnx2(&iv, x + 0.75, n), b);
        for (const auto& a : alignments) {
          char align[8] = {};
          std::strcpy(align, a.align);
          EXPECT_SAME(zintnx3(&iv, x + a.into, n, align, nullptr), a.want) << a.align << " " << x << " " << n;
        }
      }
    }
    // The ends of the table count and move like dates.
    EXPECT_EQ(zintck2(&iv, mv('M'), w.begin.back()), static_cast<double>(Walk::group(w.N(), m, s)));
    EXPECT_SAME(zintck2(&iv, mv('M'), mv('I')), kDot);  // no period holds infinity
    EXPECT_SAME(zintnx2(&iv, mv('M'), 1), w.begin_of(1, m, s));
    EXPECT_SAME(zintnx2(&iv, mv('I'), 1), kDot);  // nothing lies beyond infinity
    EXPECT_SAME(zintnx2(&iv, mv('I'), -1), w.begin_of(Walk::group(w.N(), m, s) - 1, m, s));
    // Other missing values, and values beyond any date, have no period.
    for (const double bad : {kDot, mv('A'), 1e153}) {
      EXPECT_SAME(zintck2(&iv, bad, 1000.0), kDot);
      EXPECT_SAME(zintnx2(&iv, bad, 1), kDot);
    }
  }
}

TEST_F(CustomTest, SeasonsComeFromTheTable) {
  Walk w;
  std::string csv = "BEGIN,SEASON\n";
  for (int r = 0; r < 40; ++r) {
    w.begin.push_back(1000.0 + 10 * r);
    w.season.push_back(r % 4 + 1);
    csv += std::to_string(1000 + 10 * r) + "," + std::to_string(r % 4 + 1) + "\n";
  }
  write_table("qcal", csv);
  write_table("noseas", "BEGIN\n1000\n1010\n1020\n");
  use("(QCAL=CUSTT.QCAL NOSEAS=CUSTT.NOSEAS)");

  INTERVAL iv = oracle::interval("QCAL");
  INTERVAL cycle{};
  int ns = 0;
  ASSERT_EQ(zintsea(&iv, 1000, &cycle, &ns), 0);
  EXPECT_EQ(ns, 4);
  EXPECT_EQ(cycle.intcode, kIntCustom);
  EXPECT_EQ(cycle.intper, 4);

  for (double start : {1000.0, 1015.0, 1133.0, 1009.5}) {
    SCOPED_TRACE(start);
    std::vector<int> codes(20, -7);
    int want_ns = -1;
    ASSERT_EQ(zintscd(&iv, start, 0, 20, codes.data(), &want_ns), 0);
    const long r0 = w.row(start);
    for (long t = 0; t < 20; ++t)
      EXPECT_EQ(codes[static_cast<size_t>(t)], w.season[static_cast<size_t>(r0 - 1 + t)] - 1);
  }
  // Season of a period through the advancing routine.
  INTERVALX ix = cases::intervalx("QCAL");
  for (long n = -2; n <= 5; ++n) {
    const long r = w.row(1055) + n;
    EXPECT_SAME(customINTINDEX(&ix, 1055, static_cast<double>(n)),
                r >= 1 && r <= w.N() ? static_cast<double>(w.season[static_cast<size_t>(r - 1)]) : kDot);
  }
  EXPECT_EQ(customINTSEAS(&ix, 0), 4.0);
  zcintcReleaseRef(ix.cinfo);

  // A table without seasons: the interval is its own cycle, and there are
  // no codes to give.
  INTERVAL plain = oracle::interval("NOSEAS");
  ASSERT_EQ(zintsea(&plain, 1000, &cycle, &ns), 0);
  EXPECT_EQ(ns, 1);
  EXPECT_EQ(cycle.intper, 1);
  std::vector<int> codes(3, -7);
  ns = -1;
  EXPECT_EQ(zintscd(&plain, 1000, 0, 3, codes.data(), &ns), 1);
  EXPECT_EQ(ns, -1);
  INTERVALX px = cases::intervalx("NOSEAS");
  EXPECT_SAME(customINTSEAS(&px, 0), kDot);
  zcintcReleaseRef(px.cinfo);
}

// ---- Tables with END, holes, unsorted and repeated dates ---------------------------------

struct RowQuery {
  double x;
  int status;
  double n, b, e;
};

TEST_F(CustomTest, RowsOfTablesWithEndsHolesAndDisorder) {
  write_table("holes", "BEGIN,END\n100,109\n200,209\n");
  write_table("plain", "BEGIN\n100\n200\n300\n");
  write_table("unsorted", "BEGIN\n300\n100\n200\n");
  write_table("repeat", "BEGIN\n100\n100\n200\n");
  write_table("single", "BEGIN\n100\n");
  use("(HOLES=CUSTT.HOLES PLAIN=CUSTT.PLAIN UNSORTED=CUSTT.UNSORTED REPEAT=CUSTT.REPEAT SINGLE=CUSTT.SINGLE)");
  const struct {
    const char* name;
    std::vector<RowQuery> queries;
  } cases[] = {
      {"PLAIN", {{mv('F'), 0, 1, 100, 199}, {mv('L'), 0, 3, 300, mv('I')}}},  // the walk above checks dates
      {"HOLES", {{150, -1, kDot, kDot, kDot}}},                               // the raw rows below check the rest
      // Unsorted rows: the first row that holds the date wins, and a row that
      // ends before it begins holds nothing.
      // The period before the table ends the day before the first row's begin.
      {"UNSORTED", {{150, 0, 2, 100, 199}, {350, 0, 3, 200, mv('I')}, {50, 0, 0, mv('M'), 299}}},
      // A repeated date leaves the first of its rows empty.
      {"REPEAT", {{100, 0, 2, 100, 199}, {150, 0, 2, 100, 199}, {250, 0, 3, 200, mv('I')}}},
      {"SINGLE", {{100, -1, kDot, kDot, kDot}, {50, -1, kDot, kDot, kDot}}},
  };
  for (const auto& c : cases) {
    INTERVALX ix = cases::intervalx(c.name);
    for (const RowQuery& q : c.queries) {
      SCOPED_TRACE(std::string(c.name) + " " + show(q.x));
      double n = 0, b = 0, e = 0, s = 0;
      EXPECT_EQ(findIndexC(&ix, q.x, &n, &b, &e, &s), q.status);
      EXPECT_SAME(n, q.n);
      EXPECT_SAME(b, q.b);
      EXPECT_SAME(e, q.e);
    }
    zcintcReleaseRef(ix.cinfo);
  }
  // Counting over the disorder follows the rows found.
  INTERVAL unsorted = oracle::interval("UNSORTED");
  EXPECT_EQ(zintck2(&unsorted, 150, 350), 1.0);
  INTERVAL repeat = oracle::interval("REPEAT");
  EXPECT_EQ(zintck2(&repeat, 150, 250), 1.0);
  EXPECT_EQ(zintnx2(&repeat, 250, -1), 100.0);

  // The raw row of a date tells holes and the ends apart.
  INTERVALX hx = cases::intervalx("HOLES");
  const struct {
    double date;
    double result, index, b, e;
  } raw[] = {
      {150, mv('H'), 1, 110, 199},    {500, mv('A'), 3, 210, mv('I')},    {50, mv('B'), 0, mv('M'), 99},
      {209, 2, 2, 200, 209},          {mv('M'), mv('B'), 0, mv('M'), 99}, {mv('I'), mv('A'), 3, 210, mv('I')},
      {kDot, kDot, kDot, kDot, kDot},
  };
  for (const auto& r : raw) {
    SCOPED_TRACE(show(r.date));
    double index = 0, b = 0, e = 0;
    EXPECT_SAME(customFindRawIndexC(&hx, r.date, &index, &b, &e, nullptr), r.result);
    EXPECT_SAME(index, r.index);
    EXPECT_SAME(b, r.b);
    EXPECT_SAME(e, r.e);
  }
  double left = 0, right = 0;
  EXPECT_EQ(customINTCK(&hx, 109.5, 209.75), 1.0);  // the last days of their rows
  EXPECT_EQ(customRange(&hx, 0, &left, &right, nullptr), 0);
  EXPECT_EQ(left, 100.0);
  EXPECT_EQ(right, 209.0);
  zcintcReleaseRef(hx.cinfo);
}

// Without a cache entry the routines read the table themselves (they share
// the row arithmetic with the cached ones, which the tests above check).
TEST_F(CustomTest, DirectReadingFindsTheRows) {
  write_table("plain", "BEGIN,SEASON\n100,1\n200,2\n300,1\n");
  use("(PLAIN=CUSTT.PLAIN)");
  INTERVAL iv = oracle::interval("PLAIN");
  double n = 0, b = 0, e = 0, s = 0;
  EXPECT_EQ(findIndex(&iv, 250, &n, &b, &e, &s, nullptr), 0);
  EXPECT_EQ(n, 2.0);
  EXPECT_EQ(s, 2.0);
  // Rows by number: a row ends the day before the next begins, the last at
  // infinity; .L is the last row.
  const struct { double n, b, e, s; } rows[] = {{1, 100, 199, 1}, {2, 200, 299, 2}, {mv('L'), 300, mv('I'), 1}};
  for (const auto& r : rows) {
    EXPECT_EQ(customGetObs(&iv, r.n, &b, &e, &s, nullptr), 0);
    EXPECT_EQ(b, r.b);
    EXPECT_SAME(e, r.e);
    EXPECT_EQ(s, r.s);
  }
  // A caller that names the table itself needs no interval for a row.
  int multiplier = 0, shift = 0;
  CUSTOMINTERVAL ref = getCustomIntervalDSRef(&iv, &multiplier, &shift);
  CUSTOMINTERVALDSINFO named{};
  named.DSRef = &ref;
  EXPECT_EQ(customGetObs(nullptr, 2, &b, &e, &s, &named), 0);
  EXPECT_EQ(b, 200.0);
}

// ---- Options from the environment -----------------------------------------------------

// ---- The time-ID check ----------------------------------------------------------

// A series of time IDs on the custom interval `name`, whose table TID
// holds `text`.
class TimeIdTest : public CustomTest {
 protected:
  ZTS_OBSDATES series(const std::string& text, std::vector<double>& ids, const char* name = "TID") {
    write_table("tid", text);
    use("(TID=CUSTT.TID)");
    ZTS_OBSDATES s{};
    s.start.startDate = kDot;
    EXPECT_EQ(zintstr(const_cast<tchar*>(name), -1, &s.start.interval), 0);
    s.dateVar.dateList = ids.data();
    s.nobs = static_cast<QORNOBS>(ids.size());
    return s;
  }
  // The check of `ids` on a table of three rows, every output taken.
  int check(std::vector<double>& ids, const char* align = nullptr, int max_fail = 0) {
    ZTS_OBSDATES s = series("BEGIN\n100\n200\n300\n", ids);
    index_.assign(ids.size(), -9);
    codes_.assign(ids.size(), -9);
    order_ = inf_ = -9;
    return zintctid(&s, const_cast<tchar*>(align), max_fail, index_.data(), nullptr, &order_, &inf_, codes_.data(),
                    nullptr, nullptr, &first_, &last_);
  }
  std::vector<QORNOBS> index_;
  std::vector<int> codes_;
  int order_ = 0, inf_ = 0;
  double first_ = 0, last_ = 0;
};

TEST_F(TimeIdTest, LiteralCases) {
  // The rows, codes, leads and backs of IDs are checked on random tables
  // below; an alignment also moves the IDs to their periods.
  std::vector<double> ids{100, 150, 200};
  ASSERT_EQ(check(ids, "B"), 0);
  EXPECT_EQ(order_, 1);
  EXPECT_EQ(ids, (std::vector<double>{100, 100, 200}));
  EXPECT_EQ(first_, 100);
  EXPECT_EQ(last_, 200);

  // Both ends, the middle alignment, and IDs out of order.
  ids = {1000, 300, 50};
  ASSERT_EQ(check(ids, "M"), 0);
  EXPECT_EQ(order_, 3);
  EXPECT_TRUE(esf::is_missing(ids[0]) && esf::is_missing(ids[2]));
  EXPECT_TRUE(esf::is_missing(first_) && esf::is_missing(last_));

  // Missing IDs: "." is counted, ".M" is placed before the table, ".I" is
  // searched like a date and fails; MaxFail 1 stops at a missing first ID.
  ids = {kDot, mv('M'), 150};
  ASSERT_EQ(check(ids), 0x80);
  EXPECT_EQ(codes_, (std::vector<int>{10, 1, 0}));
  EXPECT_EQ(index_[1], 0);
  ids = {mv('I')};
  EXPECT_EQ(check(ids), -1);
  ids = {kDot, 150};
  EXPECT_EQ(check(ids, nullptr, 1), 0x80);
  EXPECT_EQ(codes_[1], -9);

  // No IDs; a built-in interval. Outputs not asked for are null.
  ids.clear();
  EXPECT_EQ(check(ids), 0x8000);
  EXPECT_EQ(order_, -1);
  ids = {150};
  ZTS_OBSDATES s = series("BEGIN\n100\n", ids, "MONTH");
  EXPECT_EQ(zintctidL(&s, nullptr, 0, nullptr, nullptr, &order_, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
            -1);
}

// Random tables of increasing begins without END: every time ID is placed
// in the row a walk over the table finds, the ends get their codes, and
// the leads and backs are measured from the extreme IDs.
TEST_F(TimeIdTest, PlacesRandomTables) {
  std::mt19937_64 rng(5);
  for (int trial = 0; trial < 30; ++trial) {
    const int rows = std::uniform_int_distribution<int>(2, 40)(rng);
    std::vector<double> begin;
    double at = std::uniform_int_distribution<long>(-138061, 6500000)(rng);
    std::string text = "BEGIN\n";
    for (int r = 0; r < rows; ++r) {
      begin.push_back(at);
      text += std::to_string(static_cast<long>(at)) + "\n";
      at += std::uniform_int_distribution<int>(1, 400)(rng);
    }
    std::uniform_real_distribution<double> pick(begin.front() - 500, begin.back() + 500);
    std::vector<double> ids(200);
    for (double& x : ids) x = std::floor(pick(rng));
    const std::vector<double> original = ids;
    ZTS_OBSDATES s = series(text, ids);
    std::vector<long> index(ids.size()), rel(ids.size());
    std::vector<int> codes(ids.size());
    int order = 0, inf = 0;
    long lead = 0, back = 0;
    ASSERT_EQ(
        zintctidL(&s, nullptr, 0, index.data(), rel.data(), &order, &inf, codes.data(), &lead, &back, nullptr, nullptr),
        0);
    long lo = rows, hi = 0;
    int want_inf = 0;
    for (size_t i = 0; i < ids.size(); ++i) {
      const double x = original[i];
      // Row r (from 1) holds [begin[r-1], begin[r]); row 0 lies before the
      // table, the last row is open.
      const long row = std::upper_bound(begin.begin(), begin.end(), x) - begin.begin();
      const int code = row == 0 ? 1 : row == rows ? 4 : 0;
      ASSERT_EQ(index[i], row) << x;
      ASSERT_EQ(codes[i], code) << x;
      ASSERT_EQ(rel[i], row - index[0]);
      want_inf |= code;
      lo = std::min(lo, row);
      hi = std::max(hi, row);
    }
    EXPECT_EQ(inf, want_inf);
    EXPECT_EQ(back, 1 - lo);
    EXPECT_EQ(lead, rows - 1 - hi);
    EXPECT_EQ(ids, original);  // no alignment asked for
  }
}

}  // namespace
