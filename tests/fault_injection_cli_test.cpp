// Faults injected into a whole fit and forecast at the command line: the N-th
// allocation of the host's pool (and every later one) fails, or the N-th
// record written to a table. N walks from 1 until the run no longer meets the
// fault. Every failed run exits with a documented status and a message that
// names the failure, leaves the existing output as it was and no temporary
// file; under the sanitizer build a leak would end the run with the leak
// checker's status instead. The run that meets no fault writes the whole
// table.
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "support/cli_run.h"

namespace {

namespace fs = std::filesystem;

using support::slurp;

struct Fault {
  const char* variable;
  int stride;  // every stride-th N after the first ten, to keep the walk short
};

class FaultInjectionCli : public ::testing::TestWithParam<Fault> {};

TEST_P(FaultInjectionCli, EveryFailureEndsCleanly) {
  const Fault fault = GetParam();
  const support::ScratchDir scratch(std::string("esf_fault_") + fault.variable);
  const fs::path& dir = scratch.path;
  fs::copy_file(fs::path(ESF_SOURCE_DIR) / "examples/AirPassengers.csv", dir / "s.csv");
  auto run = [&](const std::string& env) {
    std::ofstream(dir / "out.csv") << "previous\n";
    return support::run_cli(dir, {"forecast", "s.csv", "--interval", "MONTH", "--model", "winters", "-o", "out.csv"},
                            "", env);
  };
  ASSERT_EQ(run("").status, 0);
  const std::string whole = slurp(dir / "out.csv");
  int failures = 0;
  for (long n = 1;; n += n < 10 ? 1 : fault.stride) {
    ASSERT_LT(n, 5000) << "the fault is met however late it comes";
    const auto [status, out, err] = run(std::string(fault.variable) + "=" + std::to_string(n));
    SCOPED_TRACE(std::string(fault.variable) + "=" + std::to_string(n) + "\n" + err);
    for (const auto& entry : fs::directory_iterator(dir)) {
      EXPECT_NE(entry.path().filename().string().rfind(".esforecast-", 0), 0u);
    }
    if (status == 0) {
      EXPECT_EQ(slurp(dir / "out.csv"), whole);
      break;
    }
    ++failures;
    // 3: the module could not be loaded; 4: a method answered with a failure.
    EXPECT_TRUE(status == 3 || status == 4);
    EXPECT_NE(err.find("esforecast"), std::string::npos);
    EXPECT_TRUE(err.find("memory") != std::string::npos || err.find("could not be written") != std::string::npos ||
                err.find("method table") != std::string::npos || err.find("failed") != std::string::npos);
    EXPECT_EQ(slurp(dir / "out.csv"), "previous\n");
  }
  EXPECT_GT(failures, 0);
}

INSTANTIATE_TEST_SUITE_P(Faults, FaultInjectionCli,
                         ::testing::Values(Fault{"ESF_FAIL_ALLOCATION", 1}, Fault{"ESF_FAIL_TABLE_WRITE", 13}),
                         [](const auto& test) { return std::string(test.param.variable); });

}  // namespace
