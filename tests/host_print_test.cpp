// The host's print service: format directives, print lines, the message
// catalogue, status reports and debug output.
#include <bit>
#include <cstdint>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "host/host.h"

namespace {

// Captures print output for the duration of a test.
class HostPrint : public ::testing::Test {
 protected:
  void SetUp() override {
    esf::host::capture_output(true);
    esf::host::take_printed();
    esf::host::take_log();
  }
  void TearDown() override { esf::host::capture_output(false); }
};

std::string format(const std::function<int(char*, int)>& f, int max = 256) {
  char buf[256];
  const int n = f(buf, max);
  EXPECT_EQ(n, static_cast<int>(std::string(buf).size()));
  return buf;
}

TEST_F(HostPrint, DirectivesOfTheFormatString) {
  const double dot = std::bit_cast<double>(std::uint64_t{0xFFFFFE0000000000});
  struct Case {
    const char* what;
    std::function<int(char*, int)> call;
    const char* want;
  };
  const Case cases[] = {
      {"int with width", [](char* b, int m) { return xpsstr(b, m, "[%5i]", 42); }, "[   42]"},
      {"fixed", [](char* b, int m) { return xpsstr(b, m, "%8.3f", 3.14159); }, "   3.142"},
      {"precision 9x is x", [](char* b, int m) { return xpsstr(b, m, "%8.93f", 3.14159); }, "   3.142"},
      {"scientific", [](char* b, int m) { return xpsstr(b, m, "%8.2E", 1234.5); }, "1.23E+03"},
      {"counted text", [](char* b, int m) { return xpsstr(b, m, "%*s%i.", 4, "DATEXXXX", 9); }, "DATE9."},
      {"limit name, one digit", [](char* b, int m) { return xpsstr(b, m, "U0%1i", 5); }, "U05"},
      {"terminated text", [](char* b, int m) { return xpsstr(b, m, "%-4s|", "ab"); }, "ab  |"},
      {"new line and percent", [](char* b, int m) { return xpsstr(b, m, "a%nb%%"); }, "a\nb%"},
      {"missing value", [dot](char* b, int m) { return xpsstr(b, m, "[%4.1f]", dot); }, "[   .]"},
      {"cut to the buffer", [](char* b, int) { return xpsstr(b, 4, "abcdef"); }, "abc"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(format(c.call), c.want);
  }
}

TEST_F(HostPrint, CatalogueLabelsOfTheForecastTable) {
  struct Case {
    const char* what;
    std::function<int(char*, int)> call;
    const char* want;
  };
  const Case cases[] = {
      {"forecast", [](char* b, int m) { return xpmstr(b, m, 881, 1100, 3, "AIRxx"); }, "Forecast for AIR"},
      {"upper", [](char* b, int m) { return xpmstr(b, m, 881, 1101, (1.0 - 0.05) * 100.0); },
       "Upper 95% Confidence Limit"},
      {"lower", [](char* b, int m) { return xpmstr(b, m, 881, 1102, 97.5); }, "Lower 97.5% Confidence Limit"},
      {"unknown message", [](char* b, int m) { return xpmstr(b, m, 881, 999); }, ""},
      {"unknown module", [](char* b, int m) { return xpmstr(b, m, 7, 1100, 1, "A"); }, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(format(c.call), c.want);
  }
}

TEST_F(HostPrint, LinesEndWithXpsoutOrNewLineDirectives) {
  xps("Iter ");
  xps("%4i", 3);
  EXPECT_EQ(esf::host::take_printed(), "");  // the line is still open
  xpsout(" done");
  xpsout("%n two%nthree");
  EXPECT_EQ(esf::host::take_printed(), "Iter    3 done\n\n two\nthree\n");
}

TEST_F(HostPrint, PageCountsLinesDown) {
  xppage(0);
  const int full = xpprnl(0)->left;
  xpsout("one");
  xpsout("two");
  EXPECT_EQ(xpprnl(0)->left, full - 2);
  xppage(0);
  EXPECT_EQ(xpprnl(0)->left, full);
}

TEST_F(HostPrint, StatusReportsAndDebugLinesGoToTheLog) {
  xprrlog(0, static_cast<rctype>(0x8000080B));
  xebug("zintck2: bad intcode=%i", 77);
  const std::string log = esf::host::take_log();
  EXPECT_NE(log.find("ERROR: status 0x8000080B: the table has no rows"), std::string::npos) << log;
  EXPECT_NE(log.find("zintck2: bad intcode=77"), std::string::npos) << log;
  EXPECT_EQ(esf::host::take_printed(), "");
}

}  // namespace
