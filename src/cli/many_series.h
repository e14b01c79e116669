// fit and forecast over a table of many series: a long table keyed by one or
// more columns (--by, or the header unique_id,ds,y), or a wide one (--var
// repeated, or --var '*').  One output for all series, written as they
// finish and in the order of their keys.
#pragma once

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "runner/runner.h"

namespace esf::cli {

// Exit status of a run in which some series failed and every other one was
// written.
inline constexpr int kExitSomeSeriesFailed = 5;

struct ManyOptions {
  std::vector<std::string> by;
  std::vector<std::string> vars;  // --var, as given
  std::string id_column;
  int threads = 0;  // 0: the machine's cores
  bool quiet = false;
  bool json = false;
  bool future_only = false;
  std::string output;     // forecasts (or, for fit, the estimates); empty: standard output
  std::string estimates;  // --estimates FILE
  std::string status;     // --status FILE
};

// Adds --by, --threads, --quiet, --status, --estimates (and, for forecast,
// --future-only) to a command.
void add_many_options(CLI::App* cmd, ManyOptions& o, bool forecast);

// Whether the options and the file's header ask for a run over many series.
bool wants_many(const ManyOptions& o, const std::string& input);

// Runs every series of `input`; returns the exit status (0, or
// kExitSomeSeriesFailed).  Throws RunError and CsvError for a run that
// cannot start or a table that cannot be read.
int run_many(const char* command, runner::Loader& loader, const runner::ModelOptions& model, bool forecast,
             const std::string& input, const ManyOptions& o, const runner::SavedModel* saved);

}  // namespace esf::cli
