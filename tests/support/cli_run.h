// Running the command line as a separate process, as a user does.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <sys/wait.h>

#include "support/file_text.h"

namespace support {

// `s` as one word of the shell.
inline std::string quote(const std::string& s) {
  std::string q = "'";
  for (char c : s) q += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return q + "'";
}

struct CliOutcome {
  int status = -1;
  std::string out;
  std::string err;
};

// Runs esforecast with `args` in `dir`, `input` on its standard input and
// the shell's variable settings `env` ("NAME=value ...") in its environment.
// Under the leak checker one block is expected to outlive the program: the
// method table the module's entry takes from the host's pool while it is
// loaded, which stays with the pool for the life of the process.
inline CliOutcome run_cli(const std::filesystem::path& dir, const std::vector<std::string>& args,
                          const std::string& input = "", const std::string& env = "") {
  const std::filesystem::path suppressions = dir / "lsan.supp";
  if (!std::filesystem::exists(suppressions)) std::ofstream(suppressions) << "leak:esf::runner::Loader::load\n";
  std::string cmd = "cd " + quote(dir.string()) + " && LSAN_OPTIONS=suppressions=" + quote(suppressions.string()) +
                    " " + env + " " + quote(ESF_CLI);
  for (const std::string& a : args) cmd += " " + quote(a);
  std::ofstream(dir / "stdin.txt", std::ios::binary) << input;
  cmd += " <" + quote((dir / "stdin.txt").string()) + " >" + quote((dir / "stdout.txt").string()) + " 2>" +
         quote((dir / "stderr.txt").string());
  CliOutcome r;
  const int raw = std::system(cmd.c_str());
  r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  r.out = slurp(dir / "stdout.txt");
  r.err = slurp(dir / "stderr.txt");
  return r;
}

}  // namespace support
