// The shortest text of a double that reads back to the same double, laid out
// as the host writes numbers everywhere (tables, time IDs that are numbers):
// plain digits while the decimal exponent lies in [-4, 16), "1.5e+16" and
// "2.5e-05" outside, "-0" for negative zero, "nan" and "inf" for the values
// that are not finite.
//
//   char text[esf::host::kMaxNumberChars];
//   std::string_view(text, esf::host::write_number(text, 0.1 + 0.2));  // "0.30000000000000004"
#pragma once

namespace esf::host {

// The room write_number needs: a text has at most 24 characters (sign, 17
// digits, point, exponent), and the digits are copied in whole blocks past
// its end.
inline constexpr int kMaxNumberChars = 48;

// Writes the text of `v` at `out` (room for kMaxNumberChars characters, any
// of which it may overwrite) and returns the end of the text.  Allocates
// nothing.
char* write_number(char* out, double v);

}  // namespace esf::host
