// Pieces of input quoted for messages.
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "host/host.h"

namespace esf::host {

std::string quote_input(std::string_view field, std::size_t max) {
  std::string out = "\"";
  std::size_t shown = 0;
  for (; shown < field.size() && shown < max; ++shown) {
    const auto c = static_cast<unsigned char>(field[shown]);
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c < 0x20 || c >= 0x7F) {
      out += fmt::format("\\x{:02X}", c);
    } else {
      out += static_cast<char>(c);
    }
  }
  out += '"';
  if (shown < field.size()) out += fmt::format(" (cut; {} bytes in all)", field.size());
  return out;
}

}  // namespace esf::host
