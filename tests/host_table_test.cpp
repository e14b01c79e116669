// The host's tables: names, output tables written as CSV files through the
// open / define / put / close chain, aborted tables, and input tables.
#include <bit>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "host/host.h"
#include "support/file_text.h"

namespace fs = std::filesystem;

namespace {

const double kDot = esf::kMissing;
const double kDotA = esf::missing_letter('A');

using support::slurp;

std::vector<std::string> files_in(const fs::path& dir) {
  std::vector<std::string> names;
  for (const auto& e : fs::directory_iterator(dir)) names.push_back(e.path().filename().string());
  return names;
}

// Each test gets its own directory, assigned as libref OUT.
class HostTable : public ::testing::Test {
 protected:
  void SetUp() override {
    esf::host::assign_libref("OUT", dir_);
    esf::host::capture_output(true);
    esf::host::take_log();
  }
  void TearDown() override { esf::host::capture_output(false); }

  // Opens LIBREF.<mem> for output or input; returns the open status.
  static int open_table(const char* mem, XO_PARMS* xoparm, int mode = XO_OUTPUT, const char* libref = "OUT     ") {
    XOPNSTR xopnstr{};
    std::memcpy(xopnstr.name.lib.libref, libref, 8);
    xopnstr.name.mem.name_l = static_cast<short>(std::strlen(mem));
    std::memset(xopnstr.name.mem.name, ' ', 32);
    std::memcpy(xopnstr.name.mem.name, mem, std::strlen(mem));
    std::memcpy(xopnstr.name.memtype, "        ", 8);
    xopnstr.opnmode = static_cast<decltype(xopnstr.opnmode)>(mode);
    xopnstr.obs = -1;
    xopnstr.maxrc = 1;
    *xoparm = XO_PARMS{};
    return xoopen(xoparm, &xopnstr);
  }

  // Defines numeric variables bound to slots, `announced` of them announced
  // first (-1: as many as there are names); returns the first bad status.
  int define(XO_PARMS& xoparm, ptr* xvp, const std::vector<std::string>& names, double* slots, int announced = -1) {
    if (announced < 0) announced = static_cast<int>(names.size());
    if (int rc = xvputi(xoparm.fileid, announced, 32, xvp); rc != 0) return rc;
    for (std::size_t j = 0; j < names.size(); ++j) {
      NAMESTR ns;
      xvnamei(&ns);
      ns.nfl = 10;
      ns.nfd = 5;
      ns.name_p = const_cast<char*>(names[j].c_str());
      ns.namelen = static_cast<short>(names[j].size());
      std::string label = "label of " + names[j];
      ns.label_p = label.data();
      ns.nlablen = static_cast<short>(label.size());
      if (int rc = xvputd(*xvp, &ns, 0, &slots[j], 8, 0, 0); rc != 0) return rc;
    }
    return xvpute(*xvp);
  }

  int add(XO_PARMS& xoparm, ptr xvp) {
    xyvput(xvp, 0);
    return xoparm.fileid->vector->add(&xoparm);
  }

  // Writes OUT.<mem> whole, one add a row, and closes it with `close_flags`;
  // nothing is visible under the table's file name before the close.
  void write_rows(std::string mem, const std::vector<std::string>& names, const std::vector<std::vector<double>>& rows,
                  int close_flags = 0) {
    XO_PARMS xoparm;
    ASSERT_EQ(open_table(mem.c_str(), &xoparm), 0);
    ptr xvp = nullptr;
    std::vector<double> slots(names.size());
    ASSERT_EQ(define(xoparm, &xvp, names, slots.data()), 0);
    for (const std::vector<double>& row : rows) {
      std::copy(row.begin(), row.end(), slots.begin());
      ASSERT_EQ(add(xoparm, xvp), 0);
    }
    for (char& ch : mem) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    EXPECT_FALSE(fs::exists(dir_ / (mem + ".csv")));
    ASSERT_EQ(xvputt(xvp), 0);
    ASSERT_EQ(xoclose(xoparm.fileid, close_flags), 0);
  }

  const support::ScratchDir scratch_{std::string("esf_host_table_") +
                                     ::testing::UnitTest::GetInstance()->current_test_info()->name()};
  const fs::path& dir_ = scratch_.path;
};

// A closed table is one CSV file named for the member in lower case, with
// one header line; a number is the shortest text that reads back to it, an
// ordinary missing value an empty field, a special one its name. A libref
// told that its time IDs are dates or datetimes writes the first column as
// ISO text, a missing one as an empty field. With fsync asked the table is
// the same.
TEST_F(HostTable, ClosedTableIsACsvWithTheTimeIdsTheLibrefSays) {
  using esf::host::TimeForm;
  struct Case {
    TimeForm form;
    bool fsync;
    double time;
    std::string id;
  };
  const Case cases[] = {
      {TimeForm::kNumber, false, -3652, "-3652"},
      {TimeForm::kNumber, true, -3652, "-3652"},
      {TimeForm::kDate, true, -3652, "1950-01-01"},
      {TimeForm::kDatetime, false, 86400.0 * -3652 + 3661.5, "1950-01-01T01:01:01.500"},
      {TimeForm::kDate, false, kDot, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.id);
    esf::host::assign_libref("OUT", dir_, {c.form, c.fsync});
    write_rows("Fcst", {"DATE", "ACTUAL", "U95"},
               {{c.time, 112, 1.0 / 3.0}, {c.time, kDot, 1e300}, {c.time, kDotA, -0.5}});
    EXPECT_EQ(files_in(dir_), std::vector<std::string>{"fcst.csv"});
    EXPECT_EQ(slurp(dir_ / "fcst.csv"),
              "DATE,ACTUAL,U95\n" + c.id + ",112,0.3333333333333333\n" + c.id + ",,1e+300\n" + c.id + ",.A,-0.5\n");
    EXPECT_EQ(esf::host::table_variables(dir_ / "fcst.csv")[2].label, "label of U95");
    fs::remove(dir_ / "fcst.csv");
  }
}

// Under a memory libref the same chain leaves no file: the calling thread
// takes the table once, values to the bit, and no other thread sees it; an
// aborted table is never there to take.
TEST_F(HostTable, MemoryTableIsTakenOnceByItsOwnThread) {
  esf::host::assign_memory_libref("OUT");
  // Enough rows for the columns to grow more than once.
  std::vector<std::vector<double>> rows = {{-3653, 1.0 / 3.0}, {-3622, kDotA}};
  for (int i = 2; i < 600; ++i) rows.push_back({static_cast<double>(i), kDotA});
  for (const char* mem : {"Gone", "Fcst", "Next"}) write_rows(mem, {"DATE", "U95"}, rows, mem[0] == 'G' ? XO_ABORT : 0);
  EXPECT_TRUE(files_in(dir_).empty());
  std::thread([] { EXPECT_FALSE(esf::host::take_memory_table("out.fcst")); }).join();
  std::optional<esf::host::MemoryTable> t = esf::host::take_memory_table("out.fcst");
  ASSERT_TRUE(t);
  ASSERT_EQ(t->variables.size(), 2u);
  EXPECT_EQ(t->variables[1].name, "U95");
  EXPECT_EQ(t->variables[1].label, "label of U95");
  ASSERT_EQ(t->rows(), 600u);
  EXPECT_EQ(t->columns[0][1], -3622.0);
  EXPECT_EQ(t->columns[0][599], 599.0);
  EXPECT_EQ(std::bit_cast<std::uint64_t>(t->columns[1][0]), std::bit_cast<std::uint64_t>(1.0 / 3.0));
  EXPECT_EQ(std::bit_cast<std::uint64_t>(t->columns[1][1]), std::bit_cast<std::uint64_t>(kDotA));
  EXPECT_FALSE(esf::host::take_memory_table("OUT.FCST"));
  EXPECT_FALSE(esf::host::take_memory_table("OUT.GONE"));
  // Taking one table leaves the others of the thread in place.
  const std::optional<esf::host::MemoryTable> next = esf::host::take_memory_table("OUT.NEXT");
  ASSERT_TRUE(next);
  EXPECT_EQ(next->rows(), 600u);
}

// Rows handed over in one call (xyvputn, columns read with strides) make the
// table that one xyvput and add per row make, to the byte and the bit, in a
// file and in memory, also when a record fails: it is reported alike.
TEST_F(HostTable, RowsInOneCallAreTheRowsOneByOne) {
  constexpr int kRows = 300;  // enough for the columns to grow more than once
  std::vector<double> dates(kRows), values(2 * kRows);
  for (int i = 0; i < kRows; ++i) {
    dates[i] = i;
    values[2 * i] = i / 7.0;
    values[2 * i + 1] = i % 5 != 0 ? -i : kDotA;
  }
  for (const bool memory : {false, true}) {
    if (memory) esf::host::assign_memory_libref("OUT");
    for (const long fail : {0L, 130L}) {
      std::string log[2], text[2];
      for (int bulk = 0; bulk < 2; ++bulk) {
        esf::host::table_fail_write(fail);
        XO_PARMS xoparm;
        ASSERT_EQ(open_table("T", &xoparm), 0);
        ptr xvp = nullptr;
        double slots[3];
        ASSERT_EQ(define(xoparm, &xvp, {"DATE", "A", "B"}, slots), 0);
        if (bulk == 1) {
          const double* first[] = {dates.data(), values.data(), values.data() + 1};
          const long stride[] = {1, 2, 2};
          EXPECT_EQ(xyvputn(xvp, &xoparm, kRows, first, stride) != 0, fail != 0);
        } else {
          for (int i = 0; i < kRows; ++i) {
            slots[0] = dates[i];
            std::copy(&values[2 * i], &values[2 * i + 2], slots + 1);
            if (const int status = add(xoparm, xvp); status != 0) xofprc(&xoparm, status, 4);
          }
        }
        xvputt(xvp);
        xoclose(xoparm.fileid, 0);
        log[bulk] = esf::host::take_log();
        if (memory) {
          const std::optional<esf::host::MemoryTable> table = esf::host::take_memory_table("OUT.T");
          for (const std::vector<double>& c : table->columns)
            for (double v : c) text[bulk] += std::to_string(std::bit_cast<std::uint64_t>(v)) + ",";
        } else if (fs::exists(dir_ / "t.csv")) {
          text[bulk] = slurp(dir_ / "t.csv");
          fs::remove(dir_ / "t.csv");
        }
      }
      EXPECT_EQ(log[0].empty(), fail == 0) << log[0];
      EXPECT_EQ(log[1], log[0]);
      EXPECT_EQ(text[1], text[0]);
      EXPECT_EQ(text[0].empty(), !memory && fail != 0);
    }
  }
  esf::host::table_fail_write(0);
}

// A bad definition is refused with its cause; the aborted table leaves no
// file, and an earlier table of its name alone.
TEST_F(HostTable, BadDefinitionsAreRefusedAndTheAbortCleansUp) {
  std::ofstream(dir_ / "bad.csv") << "X\n1\n";
  struct Case {
    const char* what;
    std::vector<std::string> names;
    int announced;
    const char* message;
  };
  const Case cases[] = {
      {"duplicate name", {"A", "a"}, 2, "variable a is defined twice"},
      {"not a name", {"A", "2B"}, 2, "\"2B\" is not a valid variable name"},
      {"more than announced", {"A", "B"}, 1, "variable B is one more than the 1 announced"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    XO_PARMS xoparm;
    ASSERT_EQ(open_table("BAD", &xoparm), 0);
    ptr xvp = nullptr;
    double slots[2];
    const int rc = define(xoparm, &xvp, c.names, slots, c.announced);
    EXPECT_LT(rc, 0);
    xprrlog(0, rc);
    EXPECT_NE(esf::host::take_log().find(c.message), std::string::npos);
    ASSERT_EQ(xoclose(xoparm.fileid, XO_ABORT), 0);
    EXPECT_EQ(files_in(dir_), std::vector<std::string>{"bad.csv"});
    EXPECT_EQ(slurp(dir_ / "bad.csv"), "X\n1\n");
  }
}

// A table that cannot be opened: a negative status, no file id, and a
// message that names the cause (for input, the file, line and field).
TEST_F(HostTable, OpenFailuresAreNegativeAndExplained) {
  struct Case {
    const char* libref;
    const char* mem;
    int mode;
    const char* content;  // of OUT.BAD, written first; null: none
    const char* in_message;
  };
  esf::host::assign_libref("NODIR", dir_ / "no" / "such");
  const Case cases[] = {
      {"NOLIB   ", "X", XO_OUTPUT, nullptr, "NOLIB is not assigned"},
      {"NODIR   ", "X", XO_OUTPUT, nullptr, "does not exist"},
      {"OUT     ", "9X", XO_OUTPUT, nullptr, "not a valid table name"},
      {"OUT     ", "ABSENT", XO_INPUT, nullptr, "absent.csv"},
      {"OUT     ", "BAD", XO_INPUT, "BEGIN,END\n1,2\n3,x4\n", "bad.csv: line 3, field 2 (END): \"x4\" is not a number"},
      {"OUT     ", "BAD", XO_INPUT, "BEGIN,END\n1,2,3\n", "bad.csv: line 2: 3 fields where the header has 2"},
      // One quoted field.
      {"OUT     ", "BAD", XO_INPUT, "BEGIN,END\n1,\"a\"\"b, c\"\n", "field 2 (END): \"a\\\"b, c\" is not a number"},
      {"OUT     ", "BAD", XO_INPUT, "BEGIN\n2020-02-30\n",
       "line 2, field 1 (BEGIN): \"2020-02-30\" is not a number or an ISO date"},
      {"OUT     ", "BAD", XO_INPUT, "BEGIN\nnan\n", "line 2, field 1 (BEGIN): \"nan\" is not a number"},
      {"OUT     ", "BAD", XO_INPUT, "", "bad.csv: line 1: the header line is missing"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.in_message);
    if (c.content != nullptr) std::ofstream(dir_ / "bad.csv") << c.content;
    XO_PARMS xoparm;
    const int rc = open_table(c.mem, &xoparm, c.mode, c.libref);
    EXPECT_LT(rc, 0);
    EXPECT_EQ(xoparm.fileid, nullptr);
    xprrlog(0, rc);
    const std::string log = esf::host::take_log();
    EXPECT_NE(log.find(c.in_message), std::string::npos) << log;
    fs::remove(dir_ / "bad.csv");
  }
  EXPECT_TRUE(files_in(dir_).empty());
}

// ---- Input tables ------------------------------------------------------------

using HostInputTable = HostTable;

TEST_F(HostInputTable, RowsAreReadIntoBoundBuffers) {
  // Numbers, an ISO date (day 200) and an ISO datetime (second 301).
  std::ofstream(dir_ / "cal.csv") << "begin:DATE9.,Season\n100,1\n1960-07-19,.\n\n1960-01-01T00:05:01,.C\n";
  XO_PARMS xoparm;
  ASSERT_EQ(open_table("CAL", &xoparm, XO_INPUT), 0);
  long nobs = 0;
  ASSERT_EQ(xoinfo(xoparm.fileid, 3, &nobs), 0);
  EXPECT_EQ(nobs, 3);  // blank lines are not rows

  ptr xvp = nullptr;
  ASSERT_EQ(xvgeti(xoparm.fileid, 3, &xvp), 0);
  // The custom-interval tests read formats, absent variables and rows by
  // number through the same calls.
  int vbegin = 0, vseason = 0;
  ASSERT_EQ(xvfind(xvp, "BEGIN", 5, &vbegin), 0);
  ASSERT_EQ(xvfind(xvp, "SEASON", 6, &vseason), 0);

  double begin = 0, season = 0;
  ASSERT_EQ(xvgetd(xvp, vbegin, 0, &begin, 8, 8, 0, 0), 0);
  ASSERT_EQ(xvgetd(xvp, vseason, 0, &season, 8, 8, 0, 0), 0);
  ASSERT_EQ(xvsele(xvp), 0);
  ASSERT_EQ(xvgete(xvp), 0);

  std::vector<double> begins;
  std::vector<std::uint64_t> seasons;
  xoparm.opcode = XO_READNEXT;
  xoparm.flags |= XO_READFLAG;
  int rc;
  while ((rc = xoparm.fileid->vector->read(&xoparm)) == 0) {
    ASSERT_EQ(xyvget(xvp, 0), 0);
    begins.push_back(begin);
    seasons.push_back(std::bit_cast<std::uint64_t>(season));
  }
  EXPECT_EQ(rc, XO_EOF);
  EXPECT_EQ(begins, (std::vector<double>{100, 200, 301}));
  EXPECT_EQ(seasons[0], std::bit_cast<std::uint64_t>(1.0));
  EXPECT_EQ(seasons[1], 0xFFFFFE0000000000u);  // "."
  EXPECT_EQ(seasons[2], 0xFFFFFB0000000000u);  // ".C"

  ASSERT_EQ(xvgett(xvp), 0);
  ASSERT_EQ(xoclose(xoparm.fileid, 0), 0);
  EXPECT_TRUE(fs::exists(dir_ / "cal.csv"));  // closing an input table leaves it
}

}  // namespace
