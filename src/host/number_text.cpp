#include "host/number_text.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>

#include <fmt/format.h>

namespace esf::host {
namespace {

// "00" to "99".
constexpr char kPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// Eight digits of v < 10^8 at p.
inline void eight_digits(char* p, std::uint32_t v) {
  const std::uint32_t high = v / 10000, low = v % 10000;
  std::memcpy(p, kPairs + 2 * (high / 100), 2);
  std::memcpy(p + 2, kPairs + 2 * (high % 100), 2);
  std::memcpy(p + 4, kPairs + 2 * (low / 100), 2);
  std::memcpy(p + 6, kPairs + 2 * (low % 100), 2);
}

// The decimal digits of v < 10^20 ending at `end`; returns where they
// begin.  Blocks of eight digits are independent of each other.
inline char* digits_before(char* end, std::uint64_t v) {
  while (v >= 100000000) {
    end -= 8;
    eight_digits(end, static_cast<std::uint32_t>(v % 100000000));
    v /= 100000000;
  }
  auto u = static_cast<std::uint32_t>(v);
  while (u >= 100) {
    end -= 2;
    std::memcpy(end, kPairs + 2 * (u % 100), 2);
    u /= 100;
  }
  if (u >= 10) {
    end -= 2;
    std::memcpy(end, kPairs + 2 * u, 2);
  } else {
    *--end = static_cast<char>('0' + u);
  }
  return end;
}

// Copies the n <= 17 digits at `from` to `to` as one block of 24
// characters: both have room for them, and a fixed size needs no loop.
inline void copy_digits(char* to, const char* from, [[maybe_unused]] int n) { std::memcpy(to, from, 24); }

}  // namespace

char* write_number(char* out, double v) {
  if (!std::isfinite(v)) return fmt::format_to(out, "{}", v);
  if (std::signbit(v)) *out++ = '-';
  if (v == 0.0) {
    *out++ = '0';
    return out;
  }
  // The shortest digits that read back to v: significand * 10^exponent.
  const auto decimal = fmt::detail::dragonbox::to_decimal(std::fabs(v));
  // The digits end 24 characters before the end of the buffer, so that
  // copies of a whole 24 characters from any of them stay inside it.
  char buffer[48] = {};
  char* const digits_end = buffer + 24;
  const char* digits = digits_before(digits_end, decimal.significand);
  const int n = static_cast<int>(digits_end - digits);
  const int exponent = decimal.exponent;
  const int output_exp = exponent + n - 1;  // of the first digit

  if (output_exp < -4 || output_exp >= 16) {
    // d[.ddd]e+XX, the exponent with at least two digits.
    *out++ = digits[0];
    if (n > 1) {
      *out++ = '.';
      copy_digits(out, digits + 1, n - 1);
      out += n - 1;
    }
    *out++ = 'e';
    *out++ = output_exp < 0 ? '-' : '+';
    const int e = output_exp < 0 ? -output_exp : output_exp;
    if (e >= 100) {
      *out++ = static_cast<char>('0' + e / 100);
      std::memcpy(out, kPairs + 2 * (e % 100), 2);
    } else {
      std::memcpy(out, kPairs + 2 * e, 2);
    }
    return out + 2;
  }
  if (exponent >= 0) {
    // 1234e5: the digits and the zeros.
    copy_digits(out, digits, n);
    out += n;
    std::memset(out, '0', static_cast<std::size_t>(exponent));
    return out + exponent;
  }
  const int whole = n + exponent;  // digits before the point
  if (whole > 0) {
    // 1234e-2: 12.34
    copy_digits(out, digits, whole);
    out += whole;
    *out++ = '.';
    copy_digits(out, digits + whole, n - whole);
    return out + (n - whole);
  }
  // 1234e-6: 0.001234
  *out++ = '0';
  *out++ = '.';
  std::memset(out, '0', static_cast<std::size_t>(-whole));
  out += -whole;
  copy_digits(out, digits, n);
  return out + n;
}

}  // namespace esf::host
