// The host's print service: format directives. (Print lines are read back by
// the command line's tests, status reports and debug lines by the custom and
// interval tests.)
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
      {"general, width", [](char* b, int m) { return xpsstr(b, m, "[%6g|%G]", 97.5, 1.25e-7); }, "[  97.5|1.25E-07]"},
      {"flags", [](char* b, int m) { return xpsstr(b, m, "%+.1f|%08.2e", 2.25, -0.5); }, "+2.2|-5.00e-01"},
      {"number cut to the buffer", [](char* b, int) { return xpsstr(b, 5, "%f", 3.14159); }, "3.14"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(format(c.call), c.want);
  }
}

}  // namespace
