// Tests of the text, memory and missing-value primitives and of the host's
// text routines that they dispatch to.
#include "primitives/primitives.h"

#include <bit>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/host_text.h"

namespace {

std::uint64_t bits(double d) { return std::bit_cast<std::uint64_t>(d); }

TEST(MissingValues, TableHoldsTheTwentyEightKindsInOrder) {
  EXPECT_EQ(static_cast<const void*>(qkmissv_table), static_cast<const void*>(skmissv_struct.MissTable));
  EXPECT_EQ(bits(qkmissv_table[0]), 0xFFFFFF0000000000ULL);  // ._
  for (int entry = 0; entry < 28; ++entry) {
    EXPECT_EQ(esf::missing_kind(qkmissv_table[entry]), entry);
    EXPECT_EQ(bits(esf::missing_entry(entry)), bits(qkmissv_table[entry]));
    if (entry > 0) {
      EXPECT_EQ(bits(qkmissv_table[entry - 1]) - bits(qkmissv_table[entry]), 1ULL << 40) << entry;
    }
  }
}

TEST(MissingValues, SkMissValSelectsByCharacter) {
  struct Case {
    QKChar c;
    int entry;
  };
  constexpr Case kCases[] = {
      {'.', 1}, {0, 1},   {0x1000, 1}, {'@', 1}, {'[', 1},  {'`', 1},  {'{', 1},  // around the letters
      {'_', 0}, {'-', 0}, {'A', 2},    {'a', 2}, {'Z', 27}, {'z', 27},
  };
  for (const Case& c : kCases) {
    EXPECT_EQ(bits(skMissVal(c.c)), bits(qkmissv_table[c.entry])) << "char " << c.c;
  }
}

TEST(MissingValues, WzmisAndSkMissArrayTestBitsNotNans) {
  struct Case {
    std::uint64_t pattern;
    int missing;
  };
  constexpr Case kCases[] = {
      {0xFFF8000000000000ULL, 0},  // sign-set quiet NaN: only 13 top bits are ones
      {0x7FFFFF0000000000ULL, 0},  // the pattern of ._ without its sign
      {0x8000000000000000ULL, 0},  // -0.0
      {0xFFF0000000000000ULL, 0},  // -infinity
      {0xFFFEFFFFFFFFFFFFULL, 0},  // one bit short
      {0xFFFF123456789ABCULL, 1},  // top 16 bits set, the rest arbitrary
  };
  for (const Case& c : kCases) {
    EXPECT_EQ(wzmis(std::bit_cast<double>(c.pattern)), c.missing) << std::hex << c.pattern;
    EXPECT_EQ(esf::is_missing(std::bit_cast<double>(c.pattern)) ? 1 : 0, c.missing) << std::hex << c.pattern;
  }
  EXPECT_EQ(esf::missing_kind(std::bit_cast<double>(0xFFFF000000000000ULL)), -1);  // no such kind byte
  // skMissArray looks at len values only.
  std::vector<double> v = {1.0, std::numeric_limits<double>::quiet_NaN(), -0.0, skMissVal('Q')};
  EXPECT_EQ(skMissArray(v.data(), 4), 1);
  EXPECT_EQ(skMissArray(v.data(), 3), 0);
  EXPECT_EQ(skMissArray(v.data(), 0), 0);
}

TEST(Wzstcom, BlankPaddedThreeWayComparison) {
  struct Case {
    const char* s1;
    int l1;
    const char* s2;
    int l2;
    int result;
  };
  const Case kCases[] = {
      {"AB", 2, "AB  ", 4, 0},   {"ABC", 3, "AB", 2, 3},     {"AB\t", 3, "AB", 2, -3},
      {nullptr, 5, "   ", 3, 0}, {nullptr, 0, "  x", 3, -3}, {"x", 1, nullptr, 9, 1},
      {"\xE9", 1, "e", 1, 1},    {"A", 1, "A  \xE9", 4, -4}, {"", 0, "", 0, 0},
  };
  for (const Case& c : kCases) {
    EXPECT_EQ(wzstcom(c.s1, c.l1, c.s2, c.l2), c.result)
        << (c.s1 ? c.s1 : "(null)") << " vs " << (c.s2 ? c.s2 : "(null)");
  }
}

TEST(Wzstrip, ByteAndWordScansAgreeWithASimpleScan) {
  // Every length up to 80, alignment of the start, position of the last
  // non-blank byte, with a blank or a non-blank first byte.
  alignas(8) char storage[96];
  for (int align = 0; align < 8; ++align) {
    char* s = storage + align;
    for (int len = 0; len <= 80; ++len) {
      for (int last = -1; last < len; ++last) {
        for (char first : {' ', 'F'}) {
          // Blanks before the text too: a scan running below the start then
          // gives a wrong length instead of stopping by luck.
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
  EXPECT_EQ(wzstrip("abc", -3), -3);  // returned unchanged
}

TEST(Wzstmov, CutsPadsAndTerminates) {
  struct Case {
    const char* from;
    int flen, tlen, moved;
    std::string after;  // the 8-byte target after the call; '#' is untouched
  };
  const Case kCases[] = {
      {"ABCDE", 5, 3, 3, std::string("ABC#####", 8)},    // cut, no blank written
      {"AB", 2, 5, 2, std::string("AB   ###", 8)},       // padded to tlen
      {"ABCDE", 5, -4, 3, std::string("ABC\0####", 8)},  // three and a NUL
      {"AB", 2, -6, 2, std::string("AB\0#####", 8)},     // no blank fill
      {nullptr, 3, 4, 0, std::string("    ####", 8)},    // null blanks tlen bytes
      {nullptr, 3, -5, 0, std::string("\0#######", 8)},  // null writes one NUL
  };
  for (const Case& c : kCases) {
    char to[8];
    std::memset(to, '#', sizeof to);
    EXPECT_EQ(wzstmov(c.from, c.flen, to, c.tlen), c.moved) << c.flen << " " << c.tlen;
    EXPECT_EQ(std::string(to, 8), c.after) << c.flen << " " << c.tlen;
  }
}

TEST(WzstmovAndVzmp, OverlappingMovesKeepTheSource) {
  for (int shift : {-3, -1, 1, 3}) {
    char buf[32];
    std::memcpy(buf, "0123456789abcdefghijklmnopqrstuv", 32);
    const std::string source(buf + 8, 10);
    EXPECT_EQ(wzstmov(buf + 8, 10, buf + 8 + shift, 12), 10);
    EXPECT_EQ(std::string(buf + 8 + shift, 12), source + "  ") << shift;
    std::memcpy(buf, "0123456789abcdefghijklmnopqrstuv", 32);
    vzmp(buf + 8, 10, buf + 8 + shift, 11);
    EXPECT_EQ(std::string(buf + 8 + shift, 11), source + " ") << shift;
  }
  char to[8];
  std::memset(to, '#', sizeof to);
  vzmp("ABCDEFGH", 8, to, 4);
  EXPECT_EQ(std::string(to, 8), "ABCD####");
  vzmp("XYZ", 0, to, 5);
  EXPECT_EQ(std::string(to, 8), "     ###");
}

TEST(Finders, FirstOccurrenceWithinTheLength) {
  EXPECT_EQ(wzstpos("QTR.2", 5, '.'), 3);
  EXPECT_EQ(wzstpos("QTR.2", 3, '.'), -1);  // beyond len
  EXPECT_EQ(wzstpos("a\xE9", 2, 0xE9), 1);
  EXPECT_EQ(qor_memchr("DTHOUR4", 'H', 7), 2);
  EXPECT_EQ(qor_memchr("DTHOUR4", 'H', 0), -1);
  EXPECT_EQ(wzstndx("ABABAB", 6, "BAB", -1), 1);  // tlen -1: up to the NUL
  EXPECT_EQ(wzstndx("ABC", 3, "ABCD", 4), -1);
  EXPECT_EQ(wzstndx("ABC", 2, "C", 1), -1);  // only slen bytes are searched
  EXPECT_EQ(wzstndx("ABC", 3, "BC", 2), 1);  // a match that ends the text
  EXPECT_EQ(wzbcup("abc", "ABD", 3), 'C' - 'D');
  EXPECT_EQ(wzbcup("a[", "A{", 2), '[' - '{');  // not letters: no folding
  for (int num : {0, -7, INT_MAX, INT_MIN}) {
    char out[16];
    std::memset(out, '#', sizeof out);
    const int n = wzcichr(num, out);
    EXPECT_EQ(std::string(out, static_cast<std::size_t>(n)), std::to_string(num));
    EXPECT_EQ(out[n], '#') << "no terminator";
  }
}

// Restores the host's text record after a test changes it.
class Wztxxlt : public testing::Test {
 protected:
  void SetUp() override { saved_ = wzmbinfo; }
  void TearDown() override { wzmbinfo = saved_; }
  WZMBINFO* saved_ = nullptr;
};

TEST_F(Wztxxlt, CasePathsWorkInPlaceAndUnknownFunctionsAreRefused) {
  static WZMBINFO multibyte = {1, {}};
  for (WZMBINFO* record : {static_cast<WZMBINFO*>(nullptr), &multibyte}) {
    wzmbinfo = record;
    char same[17] = "Qtr.2 weekday17W";
    EXPECT_EQ(wztxxlt(WZ_XLT_UPPER, same, same, 16), 0);
    EXPECT_EQ(std::string(same, 16), "QTR.2 WEEKDAY17W");
    EXPECT_EQ(wztxxlt(WZ_XLT_LOWER, same, same, 3), 0);
    EXPECT_EQ(std::string(same, 16), "qtr.2 WEEKDAY17W");
    char dest[4] = {'w', 'x', 'y', 'z'};
    EXPECT_EQ(static_cast<std::uint32_t>(wztxxlt(5, "abcd", dest, 4)), 0x8000200AU);
    EXPECT_EQ(std::string(dest, 4), "wxyz");
  }
}

TEST(HostText, CasingTranslationAndConversion) {
  for (int b = 0; b < 256; ++b) {
    ASSERT_EQ(wzuptab[b], (b >= 'a' && b <= 'z') ? b - 32 : b) << b;
    ASSERT_EQ(wzxltab[WZ_XLT_LOWER][b], (b >= 'A' && b <= 'Z') ? b + 32 : b) << b;
  }
  char field[32];
  EXPECT_EQ(wztxcm2s("DATETIME", -1, field, 32), 8);
  EXPECT_EQ(wzstcom(field, 32, "DATETIME", 8), 0);
  EXPECT_EQ(field[31], ' ');
}

TEST(SkStrings, LengthsCopiesAndCase) {
  const QKChar wide[] = {'w', 0x263A, 'x', 0};
  EXPECT_EQ(skStrTLen(wide), 3);
  EXPECT_EQ(skStrLen(nullptr), 0U);
  int8_t dst[4] = {'z', 'z', 'z', 'z'};
  skStrCpy(reinterpret_cast<const int8_t*>("hi"), dst);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(dst), 4), std::string("hi\0z", 4));
  QKChar wdst[5] = {9, 9, 9, 9, 9};
  skStrTCpy(wide, wdst);
  EXPECT_TRUE(wdst[1] == 0x263A && wdst[3] == 0 && wdst[4] == 9);

  int8_t text[7] = {'a', 'B', 0, 'c', '{', 'z', '@'};
  skStrUp(text, 6);  // a NUL doesn't stop it; exactly len bytes
  EXPECT_EQ(std::string(reinterpret_cast<char*>(text), 7), std::string("AB\0C{Z@", 7));
  skStrLow(text, 7);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(text), 7), std::string("ab\0c{z@", 7));
}

TEST(SkMemory, NotSetCompareAndScan) {
  EXPECT_EQ(skMemNot('x', "xxy", 2), 1);
  EXPECT_EQ(skMemNot('x', "xxy", 3), 0);
  const QKChar wx[] = {7, 7, 8};
  EXPECT_EQ(skMemTNot(7, wx, 3), 0);
  char buf[6] = "#####";
  skMemSet(buf, 0x141, 3);  // the low byte only
  EXPECT_STREQ(buf, "AAA##");

  EXPECT_EQ(skMemCmp("abc", "abd", 3), -1);
  EXPECT_EQ(skMemCmp("abc", "abd", 2), 0);
  EXPECT_EQ(skMemCmp("\xFF", "\x01", 1), 1);  // unsigned bytes
  const QKChar wa[] = {1, -2};
  const QKChar wb[] = {1, 3};
  EXPECT_EQ(skWMemCmp(wa, wb, 2), -1);  // signed wide characters

  constexpr QKMemSize kNone = static_cast<QKMemSize>(-1);
  EXPECT_EQ(skMemScan("  ab a", 6, 'a'), 2U);
  EXPECT_EQ(skMemScan("  ab a", 0, ' '), kNone);
  EXPECT_EQ(skMemNScan("  ab a", 6, ' '), 2U);
  EXPECT_EQ(skMemNScan("  ", 2, ' '), kNone);
}

TEST(SkMemory, SafeCopyMatchesAMoveAndPlainCopyRunsForward) {
  // Every length up to 24 and every shift of the target, which covers both
  // overlap cases (offset >= overlap and offset < overlap), among them the
  // moves of 10 bytes by 3 and by 7.
  for (int len = 0; len <= 24; ++len) {
    for (int shift = -len - 1; shift <= len + 1; ++shift) {
      unsigned char buf[80];
      unsigned char expected[80];
      for (int i = 0; i < 80; ++i) buf[i] = static_cast<unsigned char>(i * 7 + 3);
      std::memcpy(expected, buf, sizeof buf);
      std::memmove(expected + 28 + shift, expected + 28, static_cast<std::size_t>(len));
      skMemSCpy(buf + 28, buf + 28 + shift, static_cast<QKMemSize>(len));
      ASSERT_EQ(std::memcmp(buf, expected, sizeof buf), 0) << "len " << len << " shift " << shift;
    }
  }
  // The plain copy runs forward byte by byte: an overlap repeats the first byte.
  char buf[8] = "abcdefg";
  skMemCpy(buf, buf + 1, 5);  // overlapping: the first byte repeats
  EXPECT_STREQ(buf, "aaaaaag");
}

// A pool that hands out one block, or nothing once told to fail.
unsigned char g_block[64];
bool g_fail = false;
QKMemPtr one_block(QKPool*, QKMemSize size, int32_t) { return g_fail || size > sizeof g_block ? nullptr : g_block; }

TEST(SkMemory, DupCopiesIntoPoolMemory) {
  QKPool pool{};
  pool.memAlloc = one_block;
  const void* copy = skMemDup("abcdef", 6, &pool);
  ASSERT_EQ(copy, g_block);
  EXPECT_EQ(std::string(static_cast<const char*>(copy), 6), "abcdef");
  EXPECT_EQ(skMemDup("abcdef", 6, nullptr), nullptr);
  g_fail = true;
  EXPECT_EQ(skMemDup("abcdef", 6, &pool), nullptr);
}

}  // namespace
