// Messages for the interval parser's result codes, shared by the host
// programs that read interval names from users (the command line, the
// Python binding).
#pragma once

#include <string>
#include <string_view>

#include <fmt/format.h>

#include "host/host.h"

namespace esf::cli {

// What a result of zintstr means, in words.
inline const char* interval_parse_reason(int rc) {
  switch (rc) {
    case 1:
      return "the multiplier is 0 or larger than 2147483647";
    case 2:
      return "the shift is 0, larger than the interval allows, or follows a plain number";
    case 101:
      return "an interval name has 1 to 21 characters";
    case 102:
      return "syntax error: a second '.', a character that isn't a digit in a number, or bad weekend digits";
    case 103:
      return "not a known interval name";
    case 1001:
      return "no name given";
    case -1:
      return "the custom interval's table could not be loaded";
    default:
      return "unexpected parser result";
  }
}

// "\"MONHT\": not a known interval name (result 103)"
inline std::string interval_parse_message(std::string_view name, int rc) {
  return fmt::format("{}: {} (result {})", esf::host::quote_input(name), interval_parse_reason(rc), rc);
}

}  // namespace esf::cli
