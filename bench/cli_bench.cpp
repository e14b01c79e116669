// The whole `esforecast forecast` command as a user runs it: process start,
// loading the module, reading the CSV, the fit, the forecast table and the
// output file. Each iteration spawns the program once. Build in Release.
//
// Run on (2 X AMD EPYC CPUs, shared with concurrent builds), Release:
//   BM_ForecastCommand/AirPassengers/12/real_time    62.5 ms   (0.42 ms CPU in this process)
//   BM_ForecastCommand/AirPassengers/120/real_time   58.0 ms
//   BM_ForecastCommand/UKgas/8/real_time             68.3 ms
// `esforecast --version` alone took 59 ms on the same machine: nearly all of
// a command is process start and loading the shared objects; the CSV, the
// fit and the forecast of 144 months add a few milliseconds.
#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <sys/wait.h>

extern char** environ;

namespace {

namespace fs = std::filesystem;

// Runs the program with `args`, its output to /dev/null; the exit status.
int spawn(const std::vector<std::string>& args) {
  std::vector<char*> argv;
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  pid_t pid = 0;
  const int rc = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) return -1;
  int status = 0;
  if (waitpid(pid, &status, 0) < 0) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// esforecast forecast on an example series, `lead` forecasts, to a file.
void BM_ForecastCommand(benchmark::State& state, const char* file, const char* interval) {
  const fs::path out = fs::temp_directory_path() / ("esf_cli_bench_" + std::to_string(::getpid()) + ".csv");
  const std::vector<std::string> args = {ESF_CLI,
                                         "forecast",
                                         "--model",
                                         "simple",
                                         "--interval",
                                         interval,
                                         "--lead",
                                         std::to_string(state.range(0)),
                                         std::string(ESF_SOURCE_DIR) + "/examples/" + file,
                                         "-o",
                                         out.string()};
  for (auto _ : state) {
    if (spawn(args) != 0) {
      state.SkipWithError("esforecast forecast failed");
      break;
    }
  }
  std::error_code ec;
  fs::remove(out, ec);
}

BENCHMARK_CAPTURE(BM_ForecastCommand, AirPassengers, "AirPassengers.csv", "MONTH")
    ->Arg(12)
    ->Arg(120)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(BM_ForecastCommand, UKgas, "UKgas.csv", "QTR")->Arg(8)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
