// Tests of the text, memory and missing-value primitives and of the host's
// text routines that they dispatch to.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "host/host_text.h"
#include "primitives/primitives.h"

namespace {

std::uint64_t bits(double d) { return std::bit_cast<std::uint64_t>(d); }

// ---------------------------------------------------------------------------
// Missing values
// ---------------------------------------------------------------------------

TEST(MissingValues, TableHoldsTheTwentyEightKindsInOrder) {
  EXPECT_EQ(skmissv_struct.Double_Align, 0.0);
  EXPECT_EQ(static_cast<const void*>(qkmissv_table), static_cast<const void*>(skmissv_struct.MissTable));
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(qkmissv_table) % alignof(double), 0U);
  EXPECT_EQ(bits(qkmissv_table[0]), 0xFFFFFF0000000000ULL);   // ._
  EXPECT_EQ(bits(qkmissv_table[1]), 0xFFFFFE0000000000ULL);   // .
  EXPECT_EQ(bits(qkmissv_table[2]), 0xFFFFFD0000000000ULL);   // .A
  EXPECT_EQ(bits(qkmissv_table[27]), 0xFFFFE40000000000ULL);  // .Z
  for (int entry = 0; entry < 28; ++entry) {
    SCOPED_TRACE(entry);
    EXPECT_EQ(wzmis(qkmissv_table[entry]), 1);
    EXPECT_EQ(bits(qkmissv_table[entry]) & 0xFFFFFFFFFFULL, 0U);  // low five bytes are 0
    EXPECT_EQ(esf::missing_kind(qkmissv_table[entry]), entry);
    EXPECT_EQ(bits(esf::missing_entry(entry)), bits(qkmissv_table[entry]));
    if (entry > 0) {
      EXPECT_EQ(bits(qkmissv_table[entry - 1]) - bits(qkmissv_table[entry]), 1ULL << 40);
    }
  }
}

TEST(MissingValues, SkMissValSelectsByCharacter) {
  struct Case {
    QKChar c;
    int entry;
  };
  constexpr Case kCases[] = {
      {'.', 1}, {'?', 1}, {0, 1}, {' ', 1}, {'0', 1}, {0x1000, 1},  // unknown: the ordinary "."
      {'_', 0}, {'-', 0},                                           // "._"
      {'A', 2}, {'a', 2}, {'B', 3}, {'m', 14}, {'M', 14}, {'Z', 27}, {'z', 27},
      {'@', 1}, {'[', 1}, {'`', 1}, {'{', 1},  // neighbours of the letter ranges
  };
  for (const Case& c : kCases) {
    EXPECT_EQ(bits(skMissVal(c.c)), bits(qkmissv_table[c.entry])) << "char " << c.c;
  }
  EXPECT_EQ(bits(skMissVal('.')), 0xFFFFFE0000000000ULL);
  EXPECT_EQ(bits(esf::kMissing), bits(skMissVal('.')));
  EXPECT_EQ(bits(esf::missing_letter('S')), bits(skMissVal('S')));
}

TEST(MissingValues, WzmisIsABitTestNotANanTest) {
  struct Case {
    std::uint64_t pattern;
    int missing;
    const char* what;
  };
  constexpr Case kCases[] = {
      {0xFFF8000000000000ULL, 0, "sign-set quiet NaN: only 13 top bits set"},
      {0x7FF8000000000000ULL, 0, "positive quiet NaN"},
      {0x7FFFFF0000000000ULL, 0, "the pattern of ._ without its sign"},
      {0x8000000000000000ULL, 0, "-0.0"},
      {0xFFF0000000000000ULL, 0, "-infinity"},
      {0xFFFF000000000000ULL, 1, "top 16 bits set, any kind byte"},
      {0xFFFF123456789ABCULL, 1, "top 16 bits set, other bits arbitrary"},
      {0xFFFEFFFFFFFFFFFFULL, 0, "one bit short"},
  };
  for (const Case& c : kCases) {
    const double d = std::bit_cast<double>(c.pattern);
    EXPECT_EQ(wzmis(d), c.missing) << c.what;
    EXPECT_EQ(esf::is_missing(d) ? 1 : 0, c.missing) << c.what;
  }
  EXPECT_EQ(wzmis(0.0), 0);
  EXPECT_EQ(wzmis(-1e300), 0);
  EXPECT_EQ(esf::missing_kind(1.0), -1);
  EXPECT_EQ(esf::missing_kind(std::bit_cast<double>(0xFFFF000000000000ULL)), -1);  // kind byte 0x00
}

TEST(MissingValues, SkMissArrayStopsAtTheFirstHit) {
  std::vector<double> v = {1.0, 2.0, std::numeric_limits<double>::quiet_NaN(), -0.0};
  EXPECT_EQ(skMissArray(v.data(), v.size()), 0);
  EXPECT_EQ(skMissArray(v.data(), 0), 0);
  v.push_back(skMissVal('Q'));
  EXPECT_EQ(skMissArray(v.data(), v.size()), 1);
  EXPECT_EQ(skMissArray(v.data(), v.size() - 1), 0);  // the hit lies just beyond len
}

// ---------------------------------------------------------------------------
// Padded strings
// ---------------------------------------------------------------------------

TEST(Wzstcom, BlankPaddedThreeWayComparison) {
  struct Case {
    const char* s1;
    int l1;
    const char* s2;
    int l2;
    int result;
  };
  const Case kCases[] = {
      {"AB", 2, "AB  ", 4, 0},
      {"AB  ", 4, "AB", 2, 0},
      {"AB", 2, "ABC", 3, -3},
      {"ABC", 3, "AB", 2, 3},
      {"AB\t", 3, "AB", 2, -3},  // a control character is below the blank
      {"AB", 2, "AB\t", 3, 3},
      {nullptr, 5, "   ", 3, 0},  // null counts as length 0
      {nullptr, 0, "  x", 3, -3},
      {"x", 1, nullptr, 9, 1},
      {"ABD", 3, "ABC", 3, 3},
      {"ABC", 3, "ABD", 3, -3},
      {"\xE9", 1, "e", 1, 1},  // bytes compare as unsigned
      {"e", 1, "\xE9", 1, -1},
      {"A", 1, "A  \xE9", 4, -4},
      {"A  \x01", 4, "A", 1, -4},
      {"", 0, "", 0, 0},
  };
  for (const Case& c : kCases) {
    EXPECT_EQ(wzstcom(c.s1, c.l1, c.s2, c.l2), c.result)
        << (c.s1 ? c.s1 : "(null)") << " vs " << (c.s2 ? c.s2 : "(null)");
  }
}

TEST(Wzstrip, ByteAndWordScansAgreeWithASimpleScan) {
  // Every length up to 80, every alignment of the start, every position of
  // the last non-blank byte, with a blank or a non-blank first byte.
  alignas(8) char storage[96];
  for (int align = 0; align < 8; ++align) {
    char* s = storage + align;
    for (int len = 0; len <= 80; ++len) {
      for (int last = -1; last < len; ++last) {
        for (char first : {' ', 'F'}) {
          // Blanks before the text too, so that a scan running below the
          // start gives a wrong length instead of stopping by luck.
          std::memset(storage, ' ', sizeof storage);
          if (len > 0) s[0] = first;
          if (last >= 0) s[last] = 'x';
          int expected = len;
          while (expected > 0 && s[expected - 1] == ' ') --expected;
          ASSERT_EQ(wzstrip(s, len), expected) << "align " << align << " len " << len << " last " << last;
        }
      }
    }
  }
}

TEST(Wzstrip, DocumentedValues) {
  const std::string blanks(40, ' ');
  EXPECT_EQ(wzstrip(blanks.data(), 40), 0);
  std::string x_then_blanks = "X" + std::string(39, ' ');
  EXPECT_EQ(wzstrip(x_then_blanks.data(), 40), 1);
  EXPECT_EQ(wzstrip("abc", 0), 0);
  EXPECT_EQ(wzstrip("abc", -3), -3);  // returned unchanged
  EXPECT_EQ(wzstrip("a\0 ", 3), 2);   // a NUL isn't a blank
}

TEST(Wzstmov, CutsPadsAndTerminates) {
  struct Case {
    const char* from;
    int flen;
    int tlen;
    int moved;
    std::string after;  // the target buffer of 8 bytes after the call, '#' untouched
  };
  const Case kCases[] = {
      {"ABCDE", 5, 3, 3, std::string("ABC#####", 8)},        // cut, no blank written
      {"AB", 2, 5, 2, std::string("AB   ###", 8)},           // padded to tlen
      {"ABCDE", 5, -4, 3, std::string("ABC\0####", 8)},      // three and a NUL
      {"ABCDE", 5, -1, 0, std::string("\0#######", 8)},      // capacity 0
      {"AB", 2, -6, 2, std::string("AB\0#####", 8)},         // no blank fill
      {nullptr, 3, 4, 0, std::string("    ####", 8)},        // null blanks tlen bytes
      {nullptr, 3, -5, 0, std::string("\0#######", 8)},      // null writes one NUL
      {"ABC", 0, 2, 0, std::string("  ######", 8)},
  };
  for (const Case& c : kCases) {
    char to[8];
    std::memset(to, '#', sizeof to);
    EXPECT_EQ(wzstmov(c.from, c.flen, to, c.tlen), c.moved) << c.flen << " " << c.tlen;
    EXPECT_EQ(std::string(to, 8), c.after) << c.flen << " " << c.tlen;
  }
}

TEST(Wzstmov, OverlappingMovesKeepTheSource) {
  for (int shift : {-3, -1, 1, 3}) {
    char buf[32];
    std::memcpy(buf, "0123456789abcdefghijklmnopqrstuv", 32);
    char* from = buf + 8;
    char* to = buf + 8 + shift;
    const std::string source(from, 10);
    EXPECT_EQ(wzstmov(from, 10, to, 12), 10);
    EXPECT_EQ(std::string(to, 12), source + "  ") << shift;
  }
}

TEST(Vzmp, CopiesCutsAndPads) {
  char to[8];
  std::memset(to, '#', sizeof to);
  vzmp("ABC", 3, to, 6);
  EXPECT_EQ(std::string(to, 8), "ABC   ##");
  vzmp("ABCDEFGH", 8, to, 4);
  EXPECT_EQ(std::string(to, 8), "ABCD  ##");
  vzmp("XYZ", 0, to, 5);
  EXPECT_EQ(std::string(to, 8), "      ##");

  char buf[24];
  std::memcpy(buf, "abcdefghijklmnopqrstuvwx", 24);
  vzmp(buf + 2, 10, buf + 5, 12);  // overlapping, target above
  EXPECT_EQ(std::string(buf + 5, 12), "cdefghijkl  ");
  std::memcpy(buf, "abcdefghijklmnopqrstuvwx", 24);
  vzmp(buf + 5, 10, buf + 2, 10);  // overlapping, target below
  EXPECT_EQ(std::string(buf + 2, 10), "fghijklmno");
}

TEST(Wzstlen, MeasuresTerminatedStrings) {
  EXPECT_EQ(wzstlen(nullptr), 0);
  EXPECT_EQ(wzstlen(""), 0);
  EXPECT_EQ(wzstlen("MONTH"), 5);
}

TEST(Wzstpos, FindsAByte) {
  EXPECT_EQ(wzstpos("QTR.2", 5, '.'), 3);
  EXPECT_EQ(wzstpos("QTR.2", 3, '.'), -1);  // beyond len
  EXPECT_EQ(wzstpos(nullptr, 5, '.'), -1);
  EXPECT_EQ(wzstpos("a\xE9", 2, 0xE9), 1);   // a byte above 127
  EXPECT_EQ(wzstpos("abc", 0, 'a'), -1);
}

TEST(Wzstndx, FindsTheFirstOccurrence) {
  struct Case {
    const char* str;
    int slen;
    const char* tok;
    int tlen;
    int result;
  };
  const Case kCases[] = {
      {"WEEKDAY17W", 10, "17", 2, 7},
      {"ABABAB", 6, "BAB", 3, 1},
      {"ABABAB", 6, "BAB", -1, 1},   // terminated token, measured
      {"ABC", 3, "ABCD", 4, -1},     // token longer than the text
      {"ABC", 3, "", 0, 0},          // empty token found at once
      {"whatever", 8, "zz", 0, 0},
      {"ABC", 3, nullptr, -1, 0},
      {"", 0, "A", 1, -1},
      {"ABC", 3, "C", 1, 2},
      {"ABC", 3, "ABC", 3, 0},
      {"ABC", 2, "C", 1, -1},        // only slen bytes are searched
  };
  for (const Case& c : kCases) {
    EXPECT_EQ(wzstndx(c.str, c.slen, c.tok, c.tlen), c.result) << c.str << " / " << (c.tok ? c.tok : "(null)");
  }
}

TEST(Wzcichr, WritesDecimalWithoutTerminator) {
  struct Case {
    int num;
    const char* text;
  };
  const Case kCases[] = {
      {0, "0"}, {7, "7"}, {-7, "-7"}, {10, "10"}, {123456, "123456"},
      {INT_MAX, "2147483647"}, {INT_MIN, "-2147483648"}, {-1000000000, "-1000000000"},
  };
  for (const Case& c : kCases) {
    char out[16];
    std::memset(out, '#', sizeof out);
    const int n = wzcichr(c.num, out);
    EXPECT_EQ(n, static_cast<int>(std::strlen(c.text))) << c.num;
    EXPECT_EQ(std::string(out, static_cast<std::size_t>(n)), c.text);
    EXPECT_EQ(out[n], '#') << "no terminator";
  }
  char out[16];
  EXPECT_EQ(wzcichr(-2147483647 - 1, out), 11);
}

TEST(Wzbcup, ComparesWithoutRegardToCase) {
  struct Case {
    const char* a;
    const char* b;
    int n;
    int sign;
  };
  const Case kCases[] = {
      {"month", "MONTH", 5, 0},
      {"MoNtH", "mOnTh", 5, 0},
      {"QTRx", "QTRY", 3, 0},  // only n bytes
      {"abc", "ABD", 3, -1},
      {"abd", "ABC", 3, 1},
      {"a[", "A{", 2, -1},     // '[' and '{' are not letters: 0x5B against 0x7B
      {"\xE9", "\xC9", 1, 1},  // not ASCII letters: no folding in the stand-in table
  };
  for (const Case& c : kCases) {
    const int r = wzbcup(c.a, c.b, c.n);
    EXPECT_EQ((r > 0) - (r < 0), c.sign) << c.a << " vs " << c.b;
  }
  EXPECT_EQ(wzbcup("abc", "ABD", 3), 'C' - 'D');
}

TEST(QorMemchr, IndexOrMinusOne) {
  EXPECT_EQ(qor_memchr("DTHOUR4", 'H', 7), 2);
  EXPECT_EQ(qor_memchr("DTHOUR4", 'Z', 7), -1);
  EXPECT_EQ(qor_memchr("DTHOUR4", 'H', 0), -1);
  EXPECT_EQ(qor_memchr("a\xE9", 0xE9, 2), 1);
}

TEST(Vzfdl, FillsLenDoubles) {
  double v[4] = {1, 2, 3, 4};
  vzfdl(skMissVal('.'), v, 3);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(wzmis(v[i]), 1);
  EXPECT_EQ(v[3], 4.0);
  vzfdl(9.0, v, 0);
  vzfdl(9.0, v, -2);
  EXPECT_EQ(wzmis(v[0]), 1);
}

// ---------------------------------------------------------------------------
// Translation
// ---------------------------------------------------------------------------

// Restores the host's text record after a test changes it.
class Wztxxlt : public testing::Test {
 protected:
  void SetUp() override {
    saved_pointer_ = wzmbinfo;
    if (wzmbinfo != nullptr) saved_flag_ = wzmbinfo->mbflag;
  }
  void TearDown() override {
    wzmbinfo = saved_pointer_;
    if (wzmbinfo != nullptr) wzmbinfo->mbflag = saved_flag_;
  }
  WZMBINFO* saved_pointer_ = nullptr;
  signed char saved_flag_ = 0;
};

TEST_F(Wztxxlt, TranslatesThroughEveryPath) {
  static WZMBINFO multibyte = {1, {}};
  struct Path {
    const char* what;
    WZMBINFO* record;
  };
  static WZMBINFO single = {0, {}};
  const Path kPaths[] = {
      {"record absent", nullptr},
      {"single-byte record", &single},
      {"multi-byte record", &multibyte},
  };
  struct Case {
    int function;
    const char* out;
  };
  const Case kCases[] = {
      {0, "Qtr.2 weekday17W"},  // the stand-in's translations one and two are the identity
      {1, "Qtr.2 weekday17W"},
      {2, "QTR.2 WEEKDAY17W"},
      {3, "qtr.2 weekday17w"},
      {4, "Qtr.2 weekday17W"},
  };
  for (const Path& path : kPaths) {
    wzmbinfo = path.record;
    for (const Case& c : kCases) {
      SCOPED_TRACE(testing::Message() << path.what << ", function " << c.function);
      char dest[17];
      std::memset(dest, '#', sizeof dest);
      EXPECT_EQ(wztxxlt(c.function, "Qtr.2 weekday17W", dest, 16), 0);
      EXPECT_EQ(std::string(dest, 16), c.out);
      EXPECT_EQ(dest[16], '#');
      // In place, as the interval parser calls it.
      char same[17] = "Qtr.2 weekday17W";
      EXPECT_EQ(wztxxlt(c.function, same, same, 16), 0);
      EXPECT_EQ(std::string(same, 16), c.out);
    }
  }
}

TEST_F(Wztxxlt, UnknownFunctionChangesNothing) {
  for (WZMBINFO* record : {static_cast<WZMBINFO*>(nullptr), saved_pointer_}) {
    wzmbinfo = record;
    char dest[4] = {'w', 'x', 'y', 'z'};
    EXPECT_EQ(static_cast<std::uint32_t>(wztxxlt(5, "abcd", dest, 4)), 0x8000200AU);
    EXPECT_EQ(std::string(dest, 4), "wxyz");
  }
}

TEST_F(Wztxxlt, TableOnlyIgnoresTheMultiByteFlag) {
  static WZMBINFO multibyte = {1, {}};
  wzmbinfo = &multibyte;
  char dest[3];
  EXPECT_EQ(wztxxlt(4, "a\xE9z", dest, 3), 0);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(static_cast<unsigned char>(dest[i]), wzxltab[4][static_cast<unsigned char>("a\xE9z"[i])]);
  }
}

TEST(HostText, TablesUpperAndLowerCaseAsciiOnly) {
  for (int b = 0; b < 256; ++b) {
    const int upper = (b >= 'a' && b <= 'z') ? b - 32 : b;
    const int lower = (b >= 'A' && b <= 'Z') ? b + 32 : b;
    ASSERT_EQ(wzuptab[b], upper) << b;
    ASSERT_EQ(wzxltab[WZ_XLT_UPPER][b], upper) << b;
    ASSERT_EQ(wzxltab[WZ_XLT_LOWER][b], lower) << b;
    ASSERT_EQ(wzxltab[WZ_XLT_ONE][b], b) << b;
  }
}

TEST(HostText, TranslationsPadAndConvert) {
  char buf[10];
  std::memset(buf, '#', sizeof buf);
  EXPECT_EQ(wzsxcch("abc", 3, buf, 6, 1), 3);
  EXPECT_EQ(std::string(buf, 10), "abc   ####");
  std::memset(buf, '#', sizeof buf);
  EXPECT_EQ(wzsxrch("abcdefgh", 8, buf, 4, 0), 4);
  EXPECT_EQ(std::string(buf, 10), "abcd######");
  std::memset(buf, '#', sizeof buf);
  EXPECT_EQ(wzsxrch("ab", 2, buf, 5, 0), 2);  // no pad asked
  EXPECT_EQ(std::string(buf, 10), "ab########");

  char field[32];
  EXPECT_EQ(wztxcm2s("DATETIME", -1, field, 32), 8);
  EXPECT_EQ(wzstcom(field, 32, "DATETIME", 8), 0);
  EXPECT_EQ(std::string(field + 8, 24), std::string(24, ' '));
  EXPECT_EQ(wztxcm2s("ABCDEFGH", 8, field, 3), 3);
  EXPECT_EQ(std::string(field, 3), "ABC");

  char word[6] = "MiXeD";
  wzstrup(word, 5);
  EXPECT_STREQ(word, "MIXED");
  wzstrlo(word, 3);
  EXPECT_STREQ(word, "mixED");
}

// ---------------------------------------------------------------------------
// Narrow and wide strings
// ---------------------------------------------------------------------------

TEST(SkStrings, LengthsCopiesAndCase) {
  EXPECT_EQ(static_cast<std::uint32_t>(skUnsup()), 0x803FC004U);
  EXPECT_EQ(skStrLen(nullptr), 0U);
  EXPECT_EQ(skStrLen("abc"), 3U);
  const QKChar wide[] = {'w', 0x263A, 'x', 0};
  EXPECT_EQ(skStrTLen(wide), 3);
  EXPECT_EQ(skStrTLen(nullptr), 0);

  int8_t dst[8];
  std::memset(dst, 'z', sizeof dst);
  skStrCpy(reinterpret_cast<const int8_t*>("hi"), dst);
  EXPECT_STREQ(reinterpret_cast<char*>(dst), "hi");
  EXPECT_EQ(dst[3], 'z');
  skStrCpy(nullptr, dst);
  EXPECT_EQ(dst[0], 0);
  skStrCpy(reinterpret_cast<const int8_t*>("hi"), nullptr);  // does nothing

  QKChar wdst[5] = {9, 9, 9, 9, 9};
  skStrTCpy(wide, wdst);
  EXPECT_EQ(wdst[1], 0x263A);
  EXPECT_EQ(wdst[3], 0);
  EXPECT_EQ(wdst[4], 9);
  skStrTCpy(nullptr, wdst);
  EXPECT_EQ(wdst[0], 0);

  int8_t text[7] = {'a', 'B', 0, 'c', '{', 'z', '@'};
  skStrUp(text, 6);  // a NUL doesn't stop it; only 6 bytes
  EXPECT_EQ(std::string(reinterpret_cast<char*>(text), 7), std::string("AB\0C{Z@", 7));
  skStrLow(text, 7);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(text), 7), std::string("ab\0c{z@", 7));
}

// ---------------------------------------------------------------------------
// Memory
// ---------------------------------------------------------------------------

TEST(SkMemory, NotSetCompare) {
  const char xs[] = "xxxx";
  EXPECT_EQ(skMemNot('x', xs, 4), 1);
  EXPECT_EQ(skMemNot('x', xs, 0), 1);
  EXPECT_EQ(skMemNot('x', "xxy", 3), 0);
  const QKChar wx[] = {7, 7, 8};
  EXPECT_EQ(skMemTNot(7, wx, 2), 1);
  EXPECT_EQ(skMemTNot(7, wx, 3), 0);
  EXPECT_EQ(skMemTNot(7, wx, 0), 1);

  char buf[6] = "#####";
  skMemSet(buf, 0x141, 3);  // the low byte only
  EXPECT_STREQ(buf, "AAA##");
  QKChar wbuf[3] = {0, 0, 0};
  skMemTSet(wbuf, -5, 2);
  EXPECT_EQ(wbuf[1], -5);
  EXPECT_EQ(wbuf[2], 0);

  EXPECT_EQ(skMemCmp("abc", "abd", 3), -1);
  EXPECT_EQ(skMemCmp("abd", "abc", 3), 1);
  EXPECT_EQ(skMemCmp("abc", "abd", 2), 0);
  EXPECT_EQ(skMemCmp("abc", "xyz", 0), 0);
  EXPECT_EQ(skMemCmp("\xFF", "\x01", 1), 1);  // unsigned bytes
  const QKChar wa[] = {1, -2};
  const QKChar wb[] = {1, 3};
  EXPECT_EQ(skWMemCmp(wa, wb, 2), -1);  // signed wide characters
  EXPECT_EQ(skWMemCmp(wb, wa, 2), 1);
  EXPECT_EQ(skWMemCmp(wa, wb, 1), 0);
}

TEST(SkMemory, ScansGiveAllOnesForNoHit) {
  constexpr QKMemSize kNone = static_cast<QKMemSize>(-1);
  const char text[] = "  ab a";
  EXPECT_EQ(skMemScan(text, 6, 'a'), 2U);
  EXPECT_EQ(skMemScan(text, 2, 'a'), kNone);
  EXPECT_EQ(skMemScan(text, 0, ' '), kNone);  // even when src is valid
  EXPECT_EQ(skMemScan(nullptr, 6, 'a'), kNone);
  EXPECT_EQ(skMemNScan(text, 6, ' '), 2U);
  EXPECT_EQ(skMemNScan(text, 2, ' '), kNone);
  EXPECT_EQ(skMemNScan(nullptr, 2, ' '), kNone);
  const QKChar wide[] = {0, 0, 5};
  EXPECT_EQ(skMemTNScan(wide, 3, 0), 2U);
  EXPECT_EQ(skMemTNScan(wide, 2, 0), kNone);
  EXPECT_EQ(skMemTNScan(wide, 0, 1), kNone);
  EXPECT_EQ(skMemTNScan(nullptr, 3, 0), kNone);
}

TEST(SkMemory, PlainCopyIsForwardByteByByte) {
  char buf[8] = "abcdefg";
  skMemCpy(buf, buf + 1, 5);  // overlapping: the first byte repeats
  EXPECT_STREQ(buf, "aaaaaag");
  char to[4] = "xyz";
  skMemCpy("AB", to, 2);
  EXPECT_STREQ(to, "ABz");
}

TEST(SkMemory, SafeCopyMatchesANonOverlappingMove) {
  // Every length up to 24 and every shift of the target against the source,
  // covering both overlap cases (offset >= overlap and offset < overlap).
  for (int len = 0; len <= 24; ++len) {
    for (int shift = -len - 1; shift <= len + 1; ++shift) {
      unsigned char buf[80];
      unsigned char expected[80];
      for (int i = 0; i < 80; ++i) buf[i] = static_cast<unsigned char>(i * 7 + 3);
      std::memcpy(expected, buf, sizeof buf);
      unsigned char* src = buf + 28;
      unsigned char* dst = src + shift;
      std::memmove(expected + 28 + shift, expected + 28, static_cast<std::size_t>(len));
      skMemSCpy(src, dst, static_cast<QKMemSize>(len));
      ASSERT_EQ(std::memcmp(buf, expected, sizeof buf), 0) << "len " << len << " shift " << shift;
    }
  }
}

TEST(SkMemory, SafeCopyDocumentedShifts) {
  for (int shift : {3, 7}) {
    char buf[20];
    std::memcpy(buf, "0123456789#########", 20);
    skMemSCpy(buf, buf + shift, 10);
    EXPECT_EQ(std::string(buf + shift, 10), "0123456789") << shift;
  }
}

// A pool that counts its requests and can be told to fail.
struct CountingPool {
  QKPool pool;
  int requests = 0;
  bool fail = false;
  std::vector<std::vector<unsigned char>> blocks;
};

QKMemPtr counting_alloc(QKPool* pool, QKMemSize size, int32_t flags) {
  auto* self = reinterpret_cast<CountingPool*>(pool);
  ++self->requests;
  EXPECT_EQ(flags, 0);
  if (self->fail) return nullptr;
  self->blocks.emplace_back(size + 1);
  return self->blocks.back().data();
}

void counting_free(QKPool*, QKMemPtr) {}

TEST(SkMemory, DupCopiesIntoPoolMemory) {
  CountingPool p;
  p.pool.memAlloc = counting_alloc;
  p.pool.memFree = counting_free;
  p.blocks.reserve(4);
  const char text[] = "abcdef";
  auto* copy = static_cast<const char*>(skMemDup(text, 6, &p.pool));
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(copy, text);
  EXPECT_EQ(std::string(copy, 6), "abcdef");
  EXPECT_EQ(p.requests, 1);
  EXPECT_EQ(skMemDup(nullptr, 6, &p.pool), nullptr);
  EXPECT_EQ(skMemDup(text, 6, nullptr), nullptr);
  EXPECT_EQ(p.requests, 1);
  p.fail = true;
  EXPECT_EQ(skMemDup(text, 6, &p.pool), nullptr);
  EXPECT_EQ(p.requests, 2);
}

}  // namespace
