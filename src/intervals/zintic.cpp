// zintic and zinticms: interval records built from a code, a multiplier and
// a shift, by way of the parser, so that the record is exactly what the
// printed name would give.
#include <cstring>

#include "intervals/interval.h"
#include "primitives/primitives.h"

namespace {

// The base name zintic parses for a code, or null. Retail years have a name
// but no plain interval here; reserved and custom codes have neither.
const char* plain_interval_name(int intcode) {
  if (intcode == kIntR445Yr || intcode == kIntR454Yr || intcode == kIntR544Yr) return nullptr;
  return interval_base_name(intcode);
}

}  // namespace

extern "C" int zintic(int intcode, INTERVAL* istr) {
  const char* name = plain_interval_name(intcode);
  if (name == nullptr) return 1;
  // The parser's result is not looked at: a base name always parses.
  zintstr(const_cast<tchar*>(name), -1, istr);
  return 0;
}

extern "C" int zinticms(int intcode, int m, int s, INTERVAL* istr) {
  if (m < 0) return 1;
  if (s < 0) return 2;
  INTERVAL plain;
  if (zintic(intcode, &plain) != 0) return 103;

  // base name (at most 9) + multiplier (10) + "." + shift (10)
  tchar text[32];
  int length = plain.tokenlen;
  std::memcpy(text, plain.token, static_cast<size_t>(length));
  if (m != 0) length += wzcichr(m, text + length);
  if (s != 0) {
    text[length++] = '.';
    length += wzcichr(s, text + length);
  }
  return zintstr(text, length, istr);
}
