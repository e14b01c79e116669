// esforecast: the host program.  It loads the module image, and its
// subcommands call the module's methods and routines through the host
// stand-in.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "cli/commands.h"
#include "host/host.h"
#include "runner/loader.h"

namespace {

// A fixed-width field of the image record as text, without its padding.
std::string field(const char* p, std::size_t n) {
  std::string s(p, n);
  const std::size_t end = s.find('\0');
  if (end != std::string::npos) s.resize(end);
  while (!s.empty() && s.back() == ' ') s.pop_back();
  return s;
}

int print_version(esf::runner::Loader& loader) {
  loader.load();
  const VIMODCON& vi = loader.image_info();
  const WIPGMCON& pcn = loader.program_info();
  std::cout << fmt::format("esforecast host program\n");
  std::cout << fmt::format("module image {}\n", loader.path().string());
  std::cout << fmt::format("  program    {}\n", field(pcn.name, sizeof pcn.name));
  std::cout << fmt::format("  release    {} ({}), release number {}\n", field(vi.portver, sizeof vi.portver),
                           field(vi.portverl, sizeof vi.portverl), field(vi.releasenum, sizeof vi.releasenum));
  std::cout << fmt::format("  built      {}\n", field(vi.builddate, sizeof vi.builddate));
  std::cout << "  methods   ";
  // The names of the routines the module placed in its table, slot by slot.
  for (int i = 0; i < esf::runner::Loader::kNumMethods; ++i) {
    std::string name = loader.slot_symbol(i);
    if (name.empty()) name = "?";
    std::cout << ' ' << name;
  }
  std::cout << '\n';
  return 0;
}

// Flushes standard output and reports a write that failed (a full disk,
// a closed descriptor): the exit status says the output is incomplete.
int finish_standard_output() {
  std::cout.flush();
  errno = 0;
  if (!std::cout || std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    const int err = errno;
    std::cerr << "esforecast: writing to standard output failed" << (err != 0 ? ": " : "")
              << (err != 0 ? std::strerror(err) : "") << '\n';
    return 1;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  esf::host::inject_faults_from_environment();
  esf::runner::Loader loader;
  CLI::App app{"Exponential smoothing forecasts of time series", "esforecast"};
  app.require_subcommand(0, 1);
  bool version = false;
  app.add_flag("--version", version, "Print the module image information and the method table");
  add_calendar_command(app, loader);
  add_model_commands(app, loader);
  try {
    app.parse(argc, argv);
    if (version) return print_version(loader);
    if (app.get_subcommands().empty()) {
      std::cout << app.help();
      return 0;
    }
  } catch (const CLI::ParseError& e) {
    const int status = app.exit(e);
    return status != 0 ? status : finish_standard_output();
  } catch (const esf::runner::LoadError& e) {
    std::cerr << "esforecast: " << e.what() << '\n';
    return 3;
  } catch (const std::exception& e) {
    std::cerr << "esforecast: " << e.what() << '\n';
    return 1;
  }
  return finish_standard_output();
}
