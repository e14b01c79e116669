// Subcommands of esforecast.  Each is registered by its own unit, which adds
// its options and callback to the application; a callback that fails prints
// a message naming the file, line and field concerned and exits non-zero.
#pragma once

#include <istream>
#include <ostream>

#include <CLI/CLI.hpp>

#include "runner/loader.h"

namespace esf::cli {

// Exit status of a command that is not implemented in this build.
inline constexpr int kExitNotAvailable = 2;

// Answers calendar queries, one per line of `in`, one answer per line of
// `out` ("error: line N, ..." for a query that can't be answered). Returns
// the number of lines that got an error.
long answer_calendar_queries(esf::runner::Loader& loader, std::istream& in, std::ostream& out, bool raw);

}  // namespace esf::cli

// `calendar`: interval arithmetic on dates.
void add_calendar_command(CLI::App& app, esf::runner::Loader& loader);
// `fit` and `forecast`: model estimation and forecast tables.
void add_model_commands(CLI::App& app, esf::runner::Loader& loader);
