// The fit and forecast subcommands.  Not available in this build yet.
#include <iostream>

#include "cli/commands.h"

void add_model_commands(CLI::App& app, esf::cli::Loader& /*loader*/) {
  for (const char* name : {"fit", "forecast"}) {
    CLI::App* cmd = app.add_subcommand(name, std::string(name) == "fit" ? "Fit a smoothing model to a series"
                                                                          : "Forecast a series with a smoothing model");
    cmd->allow_extras();
    cmd->callback([name] {
      std::cerr << "esforecast " << name << ": not available yet\n";
      throw CLI::RuntimeError(esf::cli::kExitNotAvailable);
    });
  }
}
