// The print service: the host's own format directives, the current print
// line, the page, the message catalogue, status reports and debug output.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <mutex>
#include <string>
#include <string_view>
#include <system_error>

#include <fmt/format.h>

#include "host/host.h"
#include "host/host_internal.h"

namespace {

struct Output {
  std::mutex mutex;
  bool capture = false;
  std::string printed;
  std::string log;
  std::string line;  // the current print line, not yet ended
  XPPRNL page{60, 60, 132};
};

Output& output() {
  static Output out;
  return out;
}

// Text written into a caller's buffer of `cap` characters: what does not
// fit is dropped, as the buffer routines of the print service truncate.
class BoundedText {
 public:
  BoundedText(char* buf, std::size_t cap) : buf_(buf), cap_(cap) {}
  void append(const char* s, std::size_t n) {
    n = std::min(n, cap_ - len_);
    std::memcpy(buf_ + len_, s, n);
    len_ += n;
  }
  void append(std::size_t n, char c) {
    n = std::min(n, cap_ - len_);
    std::memset(buf_ + len_, c, n);
    len_ += n;
  }
  void push_back(char c) {
    if (len_ < cap_) buf_[len_++] = c;
  }
  std::size_t size() const { return len_; }

 private:
  char* buf_;
  std::size_t cap_;
  std::size_t len_ = 0;
};

// A double in the form of conversion `conv` (f, e, E, g, G) with `precision`
// digits, as the C library prints it, at `out`; the end of the text, or null
// when it does not fit before `end`.
char* write_double(char* out, char* end, double v, char conv, int precision) {
  const std::chars_format form = conv == 'f'                  ? std::chars_format::fixed
                                 : conv == 'e' || conv == 'E' ? std::chars_format::scientific
                                                              : std::chars_format::general;
  const std::to_chars_result r = std::to_chars(out, end, v, form, precision < 0 ? 6 : precision);
  if (r.ec != std::errc{}) return nullptr;
  if (conv == 'E' || conv == 'G') std::replace(out, r.ptr, 'e', 'E');
  return r.ptr;
}

// The text snprintf left in `buf` (of 512 characters), given its result.
template <class Out>
void append_printed(Out& out, const char* buf, int n) {
  if (n > 0) out.append(buf, std::min<std::size_t>(static_cast<std::size_t>(n), 511));
}

// Formats `fmt` with the host's directives into `out` (a std::string or a
// BoundedText):
//   %i %li    int, long          %f %E %g  double
//   %s        terminated text    %*s       int length, then that many chars
//   %%        a percent sign     %n        a new line
// Flags '-', '0', '+' and ' ', a width and a precision as in C.  A precision
// of 90 or more stands for precision - 90.
template <class Out>
void vformat(Out& out, const char* fmt, va_list ap) {
  if (fmt == nullptr) return;
  for (const char* p = fmt; *p != '\0'; ++p) {
    if (*p != '%') {
      // The text up to the next directive, at once.
      const char* end = p;
      while (end[1] != '\0' && end[1] != '%') ++end;
      out.append(p, static_cast<std::size_t>(end - p + 1));
      p = end;
      continue;
    }
    const char* start = p++;
    char flags[5] = {};
    std::size_t nflags = 0;
    while (*p == '-' || *p == '0' || *p == '+' || *p == ' ') {
      if (nflags < 4) flags[nflags++] = *p;  // repeated flags add nothing
      ++p;
    }
    bool star = false;
    int width = -1;
    if (*p == '*') {
      star = true;
      ++p;
    } else if (*p >= '0' && *p <= '9') {
      width = 0;
      while (*p >= '0' && *p <= '9') width = std::min(width * 10 + (*p++ - '0'), 400);
    }
    int precision = -1;
    if (*p == '.') {
      ++p;
      precision = 0;
      while (*p >= '0' && *p <= '9') precision = std::min(precision * 10 + (*p++ - '0'), 400);
      if (precision >= 90) precision -= 90;
    }
    bool is_long = false;
    if (*p == 'l') {
      is_long = true;
      ++p;
    }
    // The C conversion specification of this directive.
    char spec[64];
    auto c_spec = [&](char conv, const char* length) {
      char* q = spec;
      *q++ = '%';
      for (std::size_t k = 0; k < nflags; ++k) *q++ = flags[k];
      // Width and precision are at most 400: three digits.
      auto digits = [&](int v) {
        char d[4];
        int k = 0;
        do {
          d[k++] = static_cast<char>('0' + v % 10);
          v /= 10;
        } while (v > 0);
        while (k > 0) *q++ = d[--k];
      };
      if (width >= 0) digits(width);
      if (precision >= 0) {
        *q++ = '.';
        digits(precision);
      }
      while (*length != '\0') *q++ = *length++;
      *q++ = conv;
      *q = '\0';
    };
    char buf[512];
    switch (*p) {
      case 'i':
      case 'd': {
        const long v = is_long ? va_arg(ap, long) : va_arg(ap, int);
        if (nflags == 0 && precision < 0 && !star) {
          // The common plain or width-only integer, right-aligned in blanks
          // as C prints it.
          const std::to_chars_result r = std::to_chars(buf, buf + sizeof buf, v);
          const auto len = static_cast<int>(r.ptr - buf);
          if (width > len) out.append(static_cast<std::size_t>(width - len), ' ');
          out.append(buf, static_cast<std::size_t>(len));
          break;
        }
        c_spec('d', "l");
        append_printed(out, buf, std::snprintf(buf, sizeof buf, spec, v));
        break;
      }
      case 'f':
      case 'E':
      case 'e':
      case 'g':
      case 'G': {
        const double v = va_arg(ap, double);
        if (esf::host::internal::is_missing(v)) {
          // A missing value prints as its name, right-aligned in the width.
          const std::string name = esf::host::internal::missing_kind_name(v);
          if (width > static_cast<int>(name.size())) out.append(static_cast<std::size_t>(width) - name.size(), ' ');
          out.append(name.data(), name.size());
          break;
        }
        if (nflags == 0 && !star && std::isfinite(v)) {
          // Without flags the shortest road: the same digits as the C
          // library's, right-aligned in blanks.
          if (const char* end = write_double(buf, buf + sizeof buf, v, *p, precision); end != nullptr) {
            const auto len = static_cast<int>(end - buf);
            if (width > len) out.append(static_cast<std::size_t>(width - len), ' ');
            out.append(buf, static_cast<std::size_t>(len));
            break;
          }
        }
        c_spec(*p, "");
        append_printed(out, buf, std::snprintf(buf, sizeof buf, spec, v));
        break;
      }
      case 's': {
        if (star) {
          int len = va_arg(ap, int);
          const char* text = va_arg(ap, const char*);
          if (text != nullptr && len > 0) out.append(text, static_cast<std::size_t>(len));
        } else {
          const char* text = va_arg(ap, const char*);
          std::string_view s = text != nullptr ? text : "";
          if (precision >= 0 && static_cast<int>(s.size()) > precision)
            s = s.substr(0, static_cast<std::size_t>(precision));
          const bool left = std::memchr(flags, '-', nflags) != nullptr;
          const std::size_t pad = width > static_cast<int>(s.size()) ? static_cast<std::size_t>(width) - s.size() : 0;
          if (!left) out.append(pad, ' ');
          out.append(s.data(), s.size());
          if (left) out.append(pad, ' ');
        }
        break;
      }
      case 'c':
        out.push_back(static_cast<char>(va_arg(ap, int)));
        break;
      case '%':
        out.push_back('%');
        break;
      case 'n':
        out.push_back('\n');
        break;
      case '\0':
        out.append(start, std::strlen(start));
        return;
      default:
        out.append(start, static_cast<std::size_t>(p - start + 1));
        break;
    }
  }
}

// Sends every complete line of the current print line to the output.
void flush_lines(Output& o, bool end_line) {
  if (end_line) o.line.push_back('\n');
  std::size_t pos;
  while ((pos = o.line.find('\n')) != std::string::npos) {
    std::string done = o.line.substr(0, pos);
    o.line.erase(0, pos + 1);
    if (o.capture) {
      o.printed += done;
      o.printed.push_back('\n');
    } else {
      std::cout << done << '\n';
    }
    if (--o.page.left <= 0) o.page.left = o.page.pagesize;
  }
}

// Formats onto the current print line and prints every line it completes;
// `end_line` ends the line as well.
void print_formatted(const char* fmt, va_list ap, bool end_line) {
  std::string text;
  vformat(text, fmt, ap);
  Output& o = output();
  std::lock_guard lock(o.mutex);
  o.line += text;
  flush_lines(o, end_line);
}

// Hands over what has gathered in one of the captured texts.
std::string take_captured(std::string Output::*text) {
  Output& o = output();
  std::lock_guard lock(o.mutex);
  std::string out;
  out.swap(o.*text);
  return out;
}

// The host's catalogue of module 881: labels of the forecast table.
const char* catalogue_text(int module, int msg) {
  if (module != 881) return nullptr;
  switch (msg) {
    case 1100:
      return "Forecast for %*s";
    case 1101:
      return "Upper %g%% Confidence Limit";
    case 1102:
      return "Lower %g%% Confidence Limit";
    case 1103:
      return "Prediction Error for %*s";
    case 1104:
      return "Prediction Standard Error";
    case 1105:
      return "Smoothed Level";
    case 1106:
      return "Smoothed Trend";
    case 1107:
      return "Seasonal Index";
    default:
      return nullptr;
  }
}

// Formats into `buf`, which has room for `max` characters with the ending
// zero, truncating what does not fit; returns the length.  `buf` must not be
// one of the arguments.
int format_into(char* buf, int max, const char* fmt, va_list ap) {
  if (buf == nullptr || max <= 0) return 0;
  BoundedText text(buf, static_cast<std::size_t>(max) - 1);
  vformat(text, fmt, ap);
  buf[text.size()] = '\0';
  return static_cast<int>(text.size());
}

}  // namespace

namespace esf::host::internal {

void emit_print_line(std::string_view line) {
  Output& o = output();
  std::lock_guard lock(o.mutex);
  o.line.append(line);
  flush_lines(o, true);
}

void emit_log_line(std::string_view line) {
  Output& o = output();
  std::lock_guard lock(o.mutex);
  if (o.capture) {
    o.log.append(line);
    o.log.push_back('\n');
  } else {
    std::cerr << line << '\n';
  }
}

namespace {
thread_local int t_detail_rc = 0;
thread_local std::string t_detail;
}  // namespace

void note_status_detail(int rc, std::string text) {
  t_detail_rc = rc;
  t_detail = std::move(text);
}

std::string take_status_detail(int rc) {
  if (rc == 0 || rc != t_detail_rc) return {};
  t_detail_rc = 0;
  std::string out;
  out.swap(t_detail);
  return out;
}

}  // namespace esf::host::internal

extern "C" {

int xps(const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  print_formatted(fmt, ap, false);
  va_end(ap);
  return 0;
}

int xpsout(const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  print_formatted(fmt, ap, true);
  va_end(ap);
  return 0;
}

int xpsstr(char* buf, int max, const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  const int n = format_into(buf, max, fmt, ap);
  va_end(ap);
  return n;
}

int xpmstr(char* buf, int max, int module, int msg, ...) {
  va_list ap;
  va_start(ap, msg);
  const int n = format_into(buf, max, catalogue_text(module, msg), ap);
  va_end(ap);
  return n;
}

XPPRNL* xpprnl(int /*unit*/) { return &output().page; }

int xppage(int /*unit*/) {
  Output& o = output();
  std::lock_guard lock(o.mutex);
  if (!o.line.empty()) flush_lines(o, true);
  o.page.left = o.page.pagesize;
  return 0;
}

int xpoflsh(int /*unit*/) {
  Output& o = output();
  std::lock_guard lock(o.mutex);
  if (!o.capture) std::cout.flush();
  return 0;
}

void xprrlog(int /*unit*/, rctype rc) {
  const auto code = static_cast<unsigned>(rc);
  const std::string detail = esf::host::internal::take_status_detail(rc);
  std::string kind = rc < 0 ? "ERROR" : (rc > 0 ? "WARNING" : "NOTE");
  const char* what = nullptr;
  switch (code) {
    case 0x80000803u:
      what = "out of memory";
      break;
    case 0x80000805u:
      what = "journal record not recognised";
      break;
    case 0x8000080Bu:
      what = "the table has no rows";
      break;
    case 0x8001C80Bu:
      what = "the custom interval cache failed";
      break;
    case 0x803FC009u:
      what = "reading a table failed";
      break;
    case 0x8000080Cu:
      what = "a BEGIN or END value is not a date within the calendar (1582-01-01 to 20000-12-26)";
      break;
    case 0x8000080Du:
      what = "a SEASON value is not a whole number from 1 to 1000000";
      break;
    default:
      break;
  }
  // The cause first, then where it is.
  std::string text = what != nullptr ? what : "";
  if (!detail.empty()) text += (text.empty() ? "" : ": ") + detail;
  esf::host::internal::emit_log_line(
      fmt::format("{}: status 0x{:08X}{}{}", kind, code, text.empty() ? "" : ": ", text));
}

void xebug(const char* fmt, ...) {
  std::string text = "DEBUG: ";
  va_list ap;
  va_start(ap, fmt);
  vformat(text, fmt, ap);
  va_end(ap);
  esf::host::internal::emit_log_line(text);
}

}  // extern "C"

namespace esf::host {

void capture_output(bool on) {
  Output& o = output();
  std::lock_guard lock(o.mutex);
  o.capture = on;
}

std::string take_printed() { return take_captured(&Output::printed); }

std::string take_log() { return take_captured(&Output::log); }

}  // namespace esf::host
