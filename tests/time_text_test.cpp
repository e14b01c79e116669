// The one reader of time text: what it accepts and refuses, and that the
// series reader, the range options and the host's tables read alike.
#include "host/time_text.h"

#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <string>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "host/number_text.h"
#include "primitives/primitives.h"
#include "runner/series_csv.h"
#include "support/interval_cases.h"

namespace {

// Day numbers by std::chrono, an oracle independent of the reader's own.
using cases::d;

TEST(TimeText, FormsAcceptedAndRefused) {
  const struct {
    const char* text;
    bool ok;
    double day, second;
    bool has_time;
  } rows[] = {
      {" 2020-01-06 ", true, d(2020, 1, 6), 0, false},
      {"1949-03", true, d(1949, 3, 1), 0, false},
      {"20000-12-26", true, d(20000, 12, 26), 0, false},
      {"2020-01-06T10:15", true, d(2020, 1, 6), 36900, true},
      {"2020-01-06t10:15:30", true, d(2020, 1, 6), 36930, true},
      {"2020-01-06 23:59:59.25", true, d(2020, 1, 6), 86399.25, true},
      {"2020-1-6", false, 0, 0, false},
      {"2019-02-29", false, 0, 0, false},
      {"2020-13", false, 0, 0, false},
      {"2020-01-06T24:00", false, 0, 0, false},
      {"2020-01-06T10:60", false, 0, 0, false},
      {"2020-01-06T10:15:00.", false, 0, 0, false},
      {"2020-01-06x", false, 0, 0, false},
      {"202000-01-06", false, 0, 0, false},
      {"", false, 0, 0, false},
  };
  for (const auto& r : rows) {
    SCOPED_TRACE(r.text);
    const auto t = esf::host::read_time_text(r.text);
    ASSERT_EQ(t.has_value(), r.ok);
    if (!r.ok) continue;
    EXPECT_EQ(t->day, r.day);
    EXPECT_EQ(t->second, r.second);
    EXPECT_EQ(t->has_time, r.has_time);
  }

  // The kind of missing value read, -1 for none.
  const auto kind = [](const char* text) {
    const auto v = esf::host::read_missing_text(text);
    return v && esf::is_missing(*v) ? esf::missing_kind(*v) : -1;
  };
  for (const char* missing : {"", " ", ".", "NA", "na", "NaN", "nan"}) {
    EXPECT_EQ(kind(missing), esf::missing_kind(esf::kMissing)) << missing;
  }
  EXPECT_EQ(kind(".I"), esf::missing_kind(esf::missing_letter('I')));
  EXPECT_FALSE(esf::host::read_missing_text("N"));
  EXPECT_FALSE(esf::host::read_missing_text("0"));

  for (const auto& [text, v] : {std::pair{"1e-320", 1e-320}, {"+.5", 0.5}, {"5.", 5.0}, {"0x1p3", 8.0}, {"-0", -0.0}})
    EXPECT_EQ(esf::host::read_number_text(text), v) << text;
  for (const char* bad : {"1e400", "inf", "nan", "1.5x", "", "-"})
    EXPECT_FALSE(esf::host::read_number_text(bad)) << bad;
}

// Numbers are written as fmt writes "{}" (an independent layout of the same
// shortest digits) and read back to the bit: the edges of the plain and the
// exponent forms, zeros, subnormals, the extremes, and random bit patterns
// over every exponent.
TEST(NumberText, ShortestTextInTheLayoutOfFmt) {
  const double kMax = std::numeric_limits<double>::max();
  std::vector<double> values = {
      0.0,    -0.0,    1.0,      -1.5, 0.1 + 0.2,  1e15,   9999999999999998.0,       1e16, 1.5e16,
      1e-4,   1.25e-4, 9.999e-5, 1e-5, 123456.789, 5e-324, -2.2250738585072014e-308, kMax, 1e100,
      1e-100, 112.0,   1e22,     1e23};
  std::mt19937_64 bits(5);
  for (int i = 0; i < 200000; ++i) values.push_back(std::bit_cast<double>(bits()));
  char text[esf::host::kMaxNumberChars];
  for (double v : values) {
    if (!std::isfinite(v)) continue;
    const std::string written(text, esf::host::write_number(text, v));
    ASSERT_EQ(written, fmt::format("{}", v));
    ASSERT_EQ(std::bit_cast<std::uint64_t>(std::strtod(written.c_str(), nullptr)), std::bit_cast<std::uint64_t>(v))
        << written;
    ASSERT_EQ(std::bit_cast<std::uint64_t>(esf::host::read_number_text(written).value()),
              std::bit_cast<std::uint64_t>(v))
        << written;
  }
  EXPECT_EQ(std::string(text, esf::host::write_number(text, -std::numeric_limits<double>::infinity())), "-inf");
}

// The series reader reads the forms above (its refusals are the bad-input
// tests' rows).
TEST(TimeText, SeriesFileReadsEveryForm) {
  const auto path = std::filesystem::temp_directory_path() / ("esf_time_text_" + std::to_string(::getpid()) + ".csv");
  std::ofstream(path) << "date,value\n12000-01,1\n12000-02-01,NA\n12000-03-01 00:00,1e-320\n";
  const esf::runner::CsvSeries s = esf::runner::read_series_csv(path.string(), "", "", esf::runner::TimeUnits::kDate);
  ASSERT_EQ(s.rows.size(), 3u);
  EXPECT_EQ(s.rows[0].time, d(12000, 1, 1));
  EXPECT_TRUE(s.rows[1].missing);
  EXPECT_EQ(s.rows[2].time, d(12000, 3, 1));
  EXPECT_EQ(s.rows[2].value, 1e-320);

  std::filesystem::remove(path);
}

}  // namespace
