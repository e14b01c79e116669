// The calendar subcommand.  Not available in this build yet.
#include <iostream>

#include "cli/commands.h"

void add_calendar_command(CLI::App& app, esf::cli::Loader& /*loader*/) {
  CLI::App* cmd = app.add_subcommand("calendar", "Interval arithmetic on dates");
  cmd->allow_extras();
  cmd->callback([] {
    std::cerr << "esforecast calendar: not available yet\n";
    throw CLI::RuntimeError(esf::cli::kExitNotAvailable);
  });
}
