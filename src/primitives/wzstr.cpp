// Padded-string primitives: moving, comparing, searching and measuring
// blank-padded text, and writing an integer in decimal.
#include <cstdint>
#include <cstring>

#include "host/host_text.h"
#include "primitives/primitives.h"

namespace {

constexpr tuchar kBlank = 0x20;
// Eight blanks as one 64-bit word, for the word scan of wzstrip.
constexpr std::uint64_t kBlankWord = 0x2020202020202020ULL;
// Above this length wzstrip scans aligned words instead of bytes.
constexpr int kStripByteScanMax = 16;

inline int min_int(int a, int b) { return a < b ? a : b; }

// Index of the last non-blank byte in p[0, end), scanning bytes downward;
// -1 when all are blank.
inline int last_nonblank_bytes(const tuchar* p, int end) {
  int i = end - 1;
  if (p[0] != kBlank) {
    // The scan must stop at p[0] at the latest: no lower bound test.
    while (p[i] == kBlank) --i;
    return i;
  }
  while (i >= 0 && p[i] == kBlank) --i;
  return i;
}

}  // namespace

extern "C" {

int wzstmov(const tchar* from, int flen, tchar* to, int tlen) {
  if (flen < 0) flen = 0;
  if (tlen >= 0) {
    if (from == nullptr) {
      std::memset(to, kBlank, static_cast<std::size_t>(tlen));
      return 0;
    }
    const int moved = min_int(flen, tlen);
    // memmove when the ranges meet, a straight copy otherwise.
    if (from < to + moved && to < from + moved) {
      std::memmove(to, from, static_cast<std::size_t>(moved));
    } else {
      std::memcpy(to, from, static_cast<std::size_t>(moved));
    }
    std::memset(to + moved, kBlank, static_cast<std::size_t>(tlen - moved));
    return moved;
  }
  // A negative tlen asks for a terminated target of -1 - tlen characters.
  const int capacity = -1 - tlen;  // [0, INT_MAX]
  if (from == nullptr) {
    to[0] = '\0';
    return 0;
  }
  const int moved = min_int(flen, capacity);
  std::memmove(to, from, static_cast<std::size_t>(moved));
  to[moved] = '\0';
  return moved;
}

int wzstcom(const tchar* s1, int l1, const tchar* s2, int l2) {
  if (s1 == nullptr) l1 = 0;
  if (s2 == nullptr) l2 = 0;
  const auto* p1 = reinterpret_cast<const tuchar*>(s1);
  const auto* p2 = reinterpret_cast<const tuchar*>(s2);
  const int common = min_int(l1, l2);
  // Positions count from 1, so the magnitude of a result is the place of
  // the first difference.
  for (int i = 0; i < common; ++i) {
    if (p1[i] != p2[i]) return p1[i] < p2[i] ? -(i + 1) : i + 1;
  }
  if (l1 == l2) return 0;
  if (l1 < l2) {
    // s1 is padded with blanks: s2's first non-blank decides against a blank.
    for (int i = common; i < l2; ++i) {
      if (p2[i] != kBlank) return p2[i] > kBlank ? -(i + 1) : i + 1;
    }
  } else {
    for (int i = common; i < l1; ++i) {
      if (p1[i] != kBlank) return p1[i] < kBlank ? -(i + 1) : i + 1;
    }
  }
  return 0;
}

int wzbcup(const char* string1, const char* string2, int n) {
  const auto* p1 = reinterpret_cast<const tuchar*>(string1);
  const auto* p2 = reinterpret_cast<const tuchar*>(string2);
  for (int i = 0; i < n; ++i) {
    if (p1[i] == p2[i]) continue;
    const int u1 = wzuptab[p1[i]];
    const int u2 = wzuptab[p2[i]];
    if (u1 != u2) return u1 - u2;
  }
  return 0;
}

int wzstlen(const tchar* str) {
  if (str == nullptr) return 0;
  return static_cast<int>(std::strlen(str));
}

int wzstrip(const tchar* str, int len) {
  if (len <= 0) return len;
  const auto* p = reinterpret_cast<const tuchar*>(str);
  if (p[len - 1] != kBlank) return len;
  if (len <= kStripByteScanMax) return last_nonblank_bytes(p, len) + 1;

  // Bytes down to an 8-byte boundary of the address.
  int end = len;  // p[end, len) is known blank
  while ((reinterpret_cast<std::uintptr_t>(p + end) & 7U) != 0) {
    if (p[end - 1] != kBlank) return end;
    --end;
  }
  // Aligned words of eight bytes.  end >= 9 here, since len > 16 and at most
  // 7 bytes were taken, so at least one whole word lies below end.
  std::uint64_t word;
  std::memcpy(&word, p + end - 8, 8);
  const bool first_word_nonblank = [&] {
    std::uint64_t first;
    const int first_start = end & 7;  // the lowest aligned word starts here
    std::memcpy(&first, p + first_start, 8);
    return first != kBlankWord;
  }();
  if (first_word_nonblank) {
    // The scan must stop at the lowest aligned word: no lower bound test.
    while (word == kBlankWord) {
      end -= 8;
      std::memcpy(&word, p + end - 8, 8);
    }
  } else {
    while (end >= 8 && word == kBlankWord) {
      end -= 8;
      if (end >= 8) std::memcpy(&word, p + end - 8, 8);
    }
  }
  // Finish by bytes.
  while (end > 0 && p[end - 1] == kBlank) --end;
  return end;
}

int wzstpos(const tchar* str, int len, tuchar c) {
  if (str == nullptr || len <= 0) return -1;
  const void* hit = std::memchr(str, c, static_cast<std::size_t>(len));
  return hit == nullptr ? -1 : static_cast<int>(static_cast<const tchar*>(hit) - str);
}

int wzstndx(const tchar* str, int slen, const tchar* tok, int tlen) {
  // The empty token is found at once.
  if (tlen == 0 || (tlen < 0 && tok == nullptr)) return 0;
  if (tlen < 0) tlen = wzstlen(tok);
  if (slen == 0 || slen - (tlen - 1) <= 0) return -1;
  for (int start = 0; start <= slen - tlen; ++start) {
    if (std::memcmp(str + start, tok, static_cast<std::size_t>(tlen)) == 0) return start;
  }
  return -1;
}

int wzcichr(int num, tchar* str) {
  // Work on the magnitude as unsigned so that INT_MIN needs no special case.
  unsigned magnitude = num < 0 ? 0U - static_cast<unsigned>(num) : static_cast<unsigned>(num);
  char digits[10];  // an unsigned 32-bit value has at most 10 digits
  int ndigits = 0;
  do {
    digits[ndigits++] = static_cast<char>('0' + magnitude % 10U);
    magnitude /= 10U;
  } while (magnitude != 0U);
  int out = 0;
  if (num < 0) str[out++] = '-';
  while (ndigits > 0) str[out++] = digits[--ndigits];
  return out;  // [1, 11]
}

long qor_memchr(const tchar* str, int c, long len) {
  if (str == nullptr || len <= 0) return -1;
  const void* hit = std::memchr(str, c, static_cast<std::size_t>(len));
  return hit == nullptr ? -1 : static_cast<const tchar*>(hit) - str;
}

}  // extern "C"
