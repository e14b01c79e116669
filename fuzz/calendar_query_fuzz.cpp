// Calendar queries: the query reader of `esforecast calendar` on any lines,
// answered through the module loaded the way the command loads it. Every
// line gets an answer.
#include <algorithm>
#include <sstream>
#include <string>

#include "cli/commands.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static esf::runner::Loader loader;
  if (size < 1) return 0;
  const std::string text(esf::fuzz::text_of(data + 1, size - 1));
  std::istringstream in(text);
  std::ostringstream out;
  const long errors = esf::cli::answer_calendar_queries(loader, in, out, (data[0] & 1) != 0);
  const std::string answers = out.str();
  const long lines = std::count(text.begin(), text.end(), '\n') + (text.empty() || text.back() == '\n' ? 0 : 1);
  // `names` answers with a line per name; every other query with one line.
  ESF_FUZZ_CHECK(std::count(answers.begin(), answers.end(), '\n') >= lines);
  ESF_FUZZ_CHECK(errors >= 0 && errors <= lines);
  return 0;
}
