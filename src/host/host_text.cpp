// The stand-in host's text routines and tables.  The stand-in works in
// single-byte ASCII: upper- and lower-casing touch the letters A-Z and a-z
// only, and the host's translations one and two are the identity.
#include "host/host_text.h"

#include <cstring>

namespace {

constexpr unsigned char upper_of(int b) { return static_cast<unsigned char>(b >= 'a' && b <= 'z' ? b - 'a' + 'A' : b); }
constexpr unsigned char lower_of(int b) { return static_cast<unsigned char>(b >= 'A' && b <= 'Z' ? b - 'A' + 'a' : b); }
constexpr unsigned char same_of(int b) { return static_cast<unsigned char>(b); }

// A 256-entry table whose entry b is F(b).
#define ESF_ROW16(F, b)                                                                                          \
  F(b + 0), F(b + 1), F(b + 2), F(b + 3), F(b + 4), F(b + 5), F(b + 6), F(b + 7), F(b + 8), F(b + 9), F(b + 10), \
      F(b + 11), F(b + 12), F(b + 13), F(b + 14), F(b + 15)
#define ESF_TABLE256(F)                                                                                                \
  ESF_ROW16(F, 0), ESF_ROW16(F, 16), ESF_ROW16(F, 32), ESF_ROW16(F, 48), ESF_ROW16(F, 64), ESF_ROW16(F, 80),           \
      ESF_ROW16(F, 96), ESF_ROW16(F, 112), ESF_ROW16(F, 128), ESF_ROW16(F, 144), ESF_ROW16(F, 160), ESF_ROW16(F, 176), \
      ESF_ROW16(F, 192), ESF_ROW16(F, 208), ESF_ROW16(F, 224), ESF_ROW16(F, 240)

// Translate n bytes of src into dst through table; src and dst may overlap.
void translate(const unsigned char* table, const char* src, char* dst, int n) {
  if (dst > src && dst < src + n) {
    for (int i = n; i-- > 0;) dst[i] = static_cast<char>(table[static_cast<unsigned char>(src[i])]);
  } else {
    for (int i = 0; i < n; ++i) dst[i] = static_cast<char>(table[static_cast<unsigned char>(src[i])]);
  }
}

int translate_padded(const unsigned char* table, const char* src, int slen, char* dst, int dlen, int pad) {
  if (slen < 0) slen = 0;
  if (dlen < 0) dlen = 0;
  const int n = slen < dlen ? slen : dlen;
  translate(table, src, dst, n);
  if (pad != 0 && dlen > n) std::memset(dst + n, ' ', static_cast<std::size_t>(dlen - n));
  return n;
}

WZMBINFO host_mbinfo = {0, {0, 0, 0, 0, 0, 0, 0}};

}  // namespace

extern "C" {

const unsigned char wzuptab[WZ_XLT_SIZE] = {ESF_TABLE256(upper_of)};

const unsigned char wzxltab[WZ_XLT_TABLES][WZ_XLT_SIZE] = {
    {ESF_TABLE256(same_of)},   // 0: host translation one
    {ESF_TABLE256(same_of)},   // 1: host translation two
    {ESF_TABLE256(upper_of)},  // 2: to upper case
    {ESF_TABLE256(lower_of)},  // 3: to lower case
    {ESF_TABLE256(same_of)},   // 4: table only
};

WZMBINFO* wzmbinfo = &host_mbinfo;

int wzstrup(char* str, int len) {
  translate(wzuptab, str, str, len);
  return 0;
}

int wzstrlo(char* str, int len) {
  translate(wzxltab[WZ_XLT_LOWER], str, str, len);
  return 0;
}

int wzsxcch(const char* src, int slen, char* dst, int dlen, int pad) {
  return translate_padded(wzxltab[WZ_XLT_ONE], src, slen, dst, dlen, pad);
}

int wzsxrch(const char* src, int slen, char* dst, int dlen, int pad) {
  return translate_padded(wzxltab[WZ_XLT_TWO], src, slen, dst, dlen, pad);
}

int wztxcm2s(const char* src, int slen, char* dst, int dlen) {
  if (dlen < 0) dlen = 0;
  if (src == nullptr) slen = 0;
  if (slen < 0) slen = static_cast<int>(std::strlen(src));
  const int n = slen < dlen ? slen : dlen;
  if (n > 0) std::memmove(dst, src, static_cast<std::size_t>(n));
  if (dlen > n) std::memset(dst + n, ' ', static_cast<std::size_t>(dlen - n));
  return n;
}

}  // extern "C"

#undef ESF_TABLE256
#undef ESF_ROW16
