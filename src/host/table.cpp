// Tables of the host as CSV files.  A libref names a directory (WORK is the
// current directory unless assigned); member MEM of a libref is the file
// lower(mem).csv in it.  An output table is written to a temporary name
// beside its final name and renamed by a normal close, so that an aborted or
// failed table never leaves a file.  The first line holds the variable names
// in definition order; each record is one line.  A missing value is an empty
// field ("."), or its name for the special kinds (".A").
//
// An input table has the same form.  A header field may name a format after
// a colon, "BEGIN:DATE9.", which the variable's NAMESTR then carries.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include <fmt/format.h>

#include "host/host.h"
#include "host/host_dates.h"
#include "host/host_internal.h"
#include "host/number_text.h"
#include "host/time_text.h"

namespace fs = std::filesystem;
using namespace esf::host::internal;
using esf::host::quote_input;

namespace {

std::string upper(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = ascii_upper(c);
  return out;
}

std::string lower(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = ascii_lower(c);
  return out;
}

std::string_view trim_view(std::string_view s) {
  std::size_t b = 0, e = s.size();
  while (b < e && (s[b] == ' ' || s[b] == '\t' || s[b] == '\r')) ++b;
  while (e > b && (s[e - 1] == ' ' || s[e - 1] == '\t' || s[e - 1] == '\r')) --e;
  return s.substr(b, e - b);
}

std::string trim(std::string_view s) { return std::string(trim_view(s)); }

// A name: a letter or underscore, then letters, digits and underscores.
bool is_name(std::string_view s, std::size_t max) {
  if (s.empty() || s.size() > max) return false;
  if (!(ascii_letter(s[0]) || s[0] == '_')) return false;
  return std::all_of(s.begin(), s.end(), [](char c) { return ascii_letter(c) || ascii_digit(c) || c == '_'; });
}

// Two names equal but for the case of their letters.
bool same_name(std::string_view a, std::string_view b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return ascii_upper(x) == ascii_upper(y); });
}

struct Librefs {
  std::mutex mutex;
  std::map<std::string, fs::path> dirs;
  std::map<std::string, esf::host::TableFileOptions> file_options;
  std::set<std::string> memory;                                        // librefs whose output tables stay in memory
  std::map<std::string, esf::host::MemoryTable> inputs;                // tables placed for reading, by "LIB.MEM"
  std::map<std::string, std::vector<esf::host::VariableInfo>> closed;  // by file path
};

Librefs& librefs() {
  static Librefs l;
  return l;
}

std::atomic<long> g_temp_counter{0};

// Output tables of memory librefs closed on this thread, each under its
// upper-case name "LIB.MEM", until the host program takes them.  One
// catalogue per thread, so that tasks on different threads never see each
// other's tables; it holds the few tables not taken yet.
std::vector<esf::host::MemoryTable>& memory_catalogue() {
  thread_local std::vector<esf::host::MemoryTable> catalogue;
  return catalogue;
}

std::vector<esf::host::MemoryTable>::iterator catalogued(std::string_view key) {
  auto& catalogue = memory_catalogue();
  return std::find_if(catalogue.begin(), catalogue.end(), [key](const auto& m) { return m.name == key; });
}

// The host's open table.  `file` comes first, so an XOFILE* is a Table*; the
// variable handle of xvputi and xvgeti is the Table* as well.
struct Table {
  XOFILE file{};
  bool output = false;
  bool in_memory = false;                    // an output table of a memory libref
  esf::host::TableFileOptions file_options;  // of its libref, for a file
  std::string memory_key;                    // its catalogue name, "LIB.MEM"
  std::vector<std::vector<double>> columns;  // its values, one vector per variable
  fs::path path;
  fs::path temp_path;
  // A file's text not yet written to `fd`: whole records, written out in
  // pieces of about kFileChunk bytes and at the close.
  int fd = -1;
  std::string pending;
  enum class State { Opened, Defining, Defined, Ended } state = State::Opened;

  // Output: the variables, their bound slots and the record xyvput fills.
  std::vector<esf::host::VariableInfo> vars;
  std::vector<double*> slots;
  int nvars = 0;
  std::vector<double> record;
  bool write_failed = false;

  // Input: variables, their NAMESTRs, the rows and the read position.
  std::vector<std::string> names;
  std::vector<NAMESTR> namestrs;
  std::vector<std::vector<double>> rows;
  std::vector<long> lines;  // line of each row in the file
  std::size_t next_row = 0;
  const std::vector<double>* current = nullptr;
  std::vector<std::pair<int, double*>> binds;

  ~Table() {
    if (fd >= 0) ::close(fd);
  }
};

Table* table_of(XOFILE* fileid) { return reinterpret_cast<Table*>(fileid); }
Table* table_of(ptr xvp) { return static_cast<Table*>(xvp); }

std::string text(const tchar* p, int n) {
  if (p == nullptr || n <= 0) return {};
  return std::string(p, static_cast<std::size_t>(n));
}

std::string fixed_text(const tchar* p, std::size_t n) {
  std::string s(p, n);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\0')) s.pop_back();
  return s;
}

int fail(int rc, std::string detail) {
  note_status_detail(rc, std::move(detail));
  return rc;
}

// The bytes of a file's text gathered before they are written.
constexpr std::size_t kFileChunk = 1 << 16;

std::string format_value(double v) {
  char text[esf::host::kMaxTableValueChars];
  return std::string(text, esf::host::write_table_value(text, v));
}

// Writes all of `text` to `fd`; false when the system refuses.
bool write_all(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t n = ::write(fd, text.data(), text.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    text.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

// Writes the pending text of a file table; false (and the table marked
// failed) when it cannot.
bool flush_pending(Table& t) {
  if (t.pending.empty()) return !t.write_failed;
  const bool ok = write_all(t.fd, t.pending);
  t.pending.clear();
  if (!ok) t.write_failed = true;
  return !t.write_failed;
}

// Closes and removes the temporary file of an output table.
void discard_file(Table& t) {
  if (t.fd >= 0) ::close(t.fd);
  t.fd = -1;
  std::error_code ec;
  fs::remove(t.temp_path, ec);
}

// Splits one CSV line; fields may be quoted with '"' (doubled inside).
std::vector<std::string> split_csv(const std::string& line) {
  std::vector<std::string> fields;
  std::string field;
  bool quoted = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (quoted) {
      if (c == '"' && i + 1 < line.size() && line[i + 1] == '"') {
        field.push_back('"');
        ++i;
      } else if (c == '"') {
        quoted = false;
      } else {
        field.push_back(c);
      }
    } else if (c == '"') {
      quoted = true;
    } else if (c == ',') {
      fields.push_back(field);
      field.clear();
    } else {
      field.push_back(c);
    }
  }
  fields.push_back(field);
  return fields;
}

// A field as a number: empty or "." is the ordinary missing value, ".A" to
// ".Z" and "._" the special ones.
// A date ("2020-01-06", "2020-01") as a date value, or a datetime
// ("2020-01-06T10:15:00", "2020-01-06 10:15") as a datetime value; false for
// any other text and for a date that does not exist.
bool parse_iso_time(const std::string& s, double* out) {
  const auto t = esf::host::read_time_text(s);
  if (!t) return false;
  *out = t->has_time ? t->as_datetime() : t->as_date();
  return true;
}

bool parse_value(const std::string& raw, double* out) {
  const std::string s = trim(raw);
  if (s.empty()) {
    *out = ordinary_missing();
    return true;
  }
  if (s[0] == '.' && missing_from_name(s, out)) return true;
  if (parse_iso_time(s, out)) return true;
  errno = 0;
  char* end = nullptr;
  const double v = std::strtod(s.c_str(), &end);
  // "nan" and "inf" are not values of a table: its missing values are
  // written "." or ".A" to ".Z".
  if (end != s.c_str() + s.size() || errno == ERANGE || !std::isfinite(v)) return false;
  *out = v;
  return true;
}

// Widths and decimals of a format are at most this.
constexpr int kMaxFormatWidth = 32767;

// Splits a format text "DATE9." or "BEST12.2" into name, width and
// decimals: the digits before the point are the width, those after it the
// decimals; without a point the whole text is the name. False when the
// width or the decimals are above kMaxFormatWidth.
bool parse_format(const std::string& f, NAMESTR& ns) {
  std::string name = f;
  int width = 0, decimals = 0;
  if (std::size_t point = f.rfind('.'); point != std::string::npos) {
    for (std::size_t i = point + 1; i < f.size() && std::isdigit(static_cast<unsigned char>(f[i])); ++i) {
      decimals = decimals * 10 + (f[i] - '0');
      if (decimals > kMaxFormatWidth) return false;
    }
    std::size_t start = point;
    while (start > 0 && std::isdigit(static_cast<unsigned char>(f[start - 1]))) --start;
    for (std::size_t i = start; i < point; ++i) {
      width = width * 10 + (f[i] - '0');
      if (width > kMaxFormatWidth) return false;
    }
    name = f.substr(0, start);
  }
  name = upper(name.substr(0, std::min<std::size_t>(name.size(), 32)));
  ns.nformlongl = static_cast<short>(name.size());
  std::memset(ns.nformlong, ' ', sizeof ns.nformlong);
  std::memcpy(ns.nformlong, name.data(), name.size());
  ns.nfl = static_cast<short>(width);
  ns.nfd = static_cast<short>(decimals);
  return true;
}

// An input table that the host program placed in memory, read as a file's
// rows would be (row i counts as line i + 2, after a header).
int read_memory_table(Table& t, const std::string& key) {
  Librefs& l = librefs();
  std::lock_guard lock(l.mutex);
  const auto it = l.inputs.find(key);
  if (it == l.inputs.end()) return fail(kTableNotFound, fmt::format("there is no table {} in memory", key));
  const esf::host::MemoryTable& m = it->second;
  for (std::size_t j = 0; j < m.variables.size(); ++j) {
    t.names.push_back(upper(m.variables[j].name));
    NAMESTR ns{};
    xvnamei(&ns);
    ns.nvar0 = static_cast<long>(j) + 1;
    t.namestrs.push_back(ns);
  }
  for (std::size_t j = 0; j < t.namestrs.size(); ++j) {
    t.namestrs[j].name_p = t.names[j].data();
    t.namestrs[j].namelen = static_cast<short>(t.names[j].size());
  }
  for (std::size_t i = 0; i < m.rows(); ++i) {
    std::vector<double> row;
    for (const std::vector<double>& c : m.columns) row.push_back(c[i]);
    t.rows.push_back(std::move(row));
    t.lines.push_back(static_cast<long>(i) + 2);
  }
  return 0;
}

int read_table(Table& t, const fs::path& path) {
  std::ifstream in(path);
  if (!in) return fail(kTableNotFound, fmt::format("cannot open table file {}", path.string()));
  std::string line;
  if (!std::getline(in, line))
    return fail(kTableBadData, fmt::format("{}: line 1: the header line is missing", path.string()));
  if (line.starts_with("\xEF\xBB\xBF")) line.erase(0, 3);  // a UTF-8 byte-order mark
  const std::vector<std::string> header = split_csv(line);
  for (std::size_t j = 0; j < header.size(); ++j) {
    std::string field = trim(header[j]);
    std::string format;
    if (std::size_t colon = field.find(':'); colon != std::string::npos) {
      format = trim(field.substr(colon + 1));
      field = trim(field.substr(0, colon));
    }
    if (!is_name(field, 32))
      return fail(kTableBadData, fmt::format("{}: line 1, field {}: {} is not a variable name", path.string(), j + 1,
                                             quote_input(field)));
    t.names.push_back(upper(field));
    NAMESTR ns{};
    xvnamei(&ns);
    ns.nvar0 = static_cast<long>(j) + 1;
    if (!format.empty() && !parse_format(format, ns))
      return fail(kTableBadData,
                  fmt::format("{}: line 1, field {} ({}): the format {} has a width or decimals above {}",
                              path.string(), j + 1, upper(field), quote_input(format), kMaxFormatWidth));
    t.namestrs.push_back(ns);
  }
  for (std::size_t j = 0; j < t.namestrs.size(); ++j) {
    t.namestrs[j].name_p = t.names[j].data();
    t.namestrs[j].namelen = static_cast<short>(t.names[j].size());
  }
  long lineno = 1;
  while (std::getline(in, line)) {
    ++lineno;
    if (trim(line).empty()) continue;
    const std::vector<std::string> fields = split_csv(line);
    if (fields.size() != header.size())
      return fail(kTableBadData, fmt::format("{}: line {}: {} fields where the header has {}", path.string(), lineno,
                                             fields.size(), header.size()));
    std::vector<double> row(fields.size());
    for (std::size_t j = 0; j < fields.size(); ++j) {
      if (!parse_value(fields[j], &row[j]))
        return fail(kTableBadData, fmt::format("{}: line {}, field {} ({}): {} is not a number or an ISO date",
                                               path.string(), lineno, j + 1, t.names[j], quote_input(trim(fields[j]))));
    }
    t.rows.push_back(std::move(row));
    t.lines.push_back(lineno);
  }
  return 0;
}

// The name that messages give a table: its catalogue name in memory, else
// its file.
std::string shown_name(const Table& t) { return t.in_memory ? t.memory_key : t.path.string(); }

// Puts the record whose variable j has value(j) in the record buffer, where
// the add entry takes it.
template <class Value>
void stage_record(Table& t, Value value) {
  const std::size_t n = t.slots.size();
  double* record = t.record.data();
  for (std::size_t j = 0; j < n; ++j) record[j] = value(j);
}

// Records still to be written before one fails (table_fail_write); -1: none.
std::atomic<long> g_writes_before_failure{-1};

int table_add(XO_PARMS* xoparm) {
  if (xoparm == nullptr || xoparm->fileid == nullptr) return kTableState;
  Table& t = *table_of(xoparm->fileid);
  int status = 0;
  if (!t.output || t.state != Table::State::Defined) {
    status = fail(kTableState, "a record was added to a table whose variables are not defined");
  } else if (g_writes_before_failure.load() >= 0 && g_writes_before_failure.fetch_sub(1) == 0) {
    t.write_failed = true;
    status = fail(kTableWrite, fmt::format("writing a record of {} failed", shown_name(t)));
  } else if (t.in_memory) {
    // The record is the next row; without an xyvput since the last add it
    // repeats the last row.
    for (std::size_t j = 0; j < t.columns.size(); ++j) t.columns[j].push_back(t.record[j]);
  } else {
    // Each field's text goes straight to the end of the pending text, which
    // has room for the longest record.
    const std::size_t at = t.pending.size();
    t.pending.resize(at + t.record.size() * (esf::host::kMaxTableFieldChars + 1));
    char* const begin = t.pending.data() + at;
    char* p = begin;
    for (std::size_t j = 0; j < t.record.size(); ++j) {
      if (j > 0) *p++ = ',';
      p = esf::host::write_table_field(p, t.record[j], j, t.file_options.time_id);
    }
    *p++ = '\n';
    t.pending.resize(at + static_cast<std::size_t>(p - begin));
    if (t.pending.size() >= kFileChunk && !flush_pending(t)) {
      status = fail(kTableWrite, fmt::format("writing {} failed", t.temp_path.string()));
    }
  }
  t.file.status = status;
  return status;
}

int table_read(XO_PARMS* xoparm) {
  if (xoparm == nullptr || xoparm->fileid == nullptr) return kTableState;
  Table& t = *table_of(xoparm->fileid);
  if (t.output) return kTableState;
  if (t.next_row >= t.rows.size()) {
    t.current = nullptr;
    return XO_EOF;
  }
  t.current = &t.rows[t.next_row++];
  xoparm->obsnum = static_cast<long>(t.next_row);
  return 0;
}

XOVECTOR g_vector{table_add, table_read};

}  // namespace

extern "C" {

int znamdiv(int /*flags*/, const tchar* name, int len, int* count, int n, struct u_sname* lib, struct u_sname* mem,
            struct u_sname* type) {
  XSNAME* parts[3] = {reinterpret_cast<XSNAME*>(lib), reinterpret_cast<XSNAME*>(mem), reinterpret_cast<XSNAME*>(type)};
  for (XSNAME* p : parts) {
    if (p != nullptr) {
      p->name_l = 0;
      std::memset(p->name, ' ', sizeof p->name);
    }
  }
  if (count != nullptr) *count = 0;
  if (name == nullptr) return 1;
  if (len < 0) len = static_cast<int>(std::strlen(name));
  const std::string_view whole = trim_view(std::string_view(name, static_cast<std::size_t>(len)));
  // At most three parts; a fourth makes the name unusable.
  std::string_view pieces[3];
  std::size_t npieces = 0;
  for (std::size_t start = 0;;) {
    const std::size_t dot = whole.find('.', start);
    if (npieces == 3) return 1;
    pieces[npieces++] = trim_view(whole.substr(start, dot == std::string_view::npos ? dot : dot - start));
    if (dot == std::string_view::npos) break;
    start = dot + 1;
  }
  if (whole.empty() || npieces > static_cast<std::size_t>(std::min(n, 3))) return 1;
  // One part is a member of WORK; two are library and member; three add a type.
  const std::size_t limits[3] = {8, 32, 8};
  XSNAME* targets[3] = {nullptr, nullptr, nullptr};
  std::size_t lims[3] = {0, 0, 0};
  if (npieces == 1) {
    targets[0] = parts[1];
    lims[0] = limits[1];
  } else {
    for (std::size_t i = 0; i < npieces; ++i) {
      targets[i] = parts[i];
      lims[i] = limits[i];
    }
  }
  for (std::size_t i = 0; i < npieces; ++i) {
    if (!is_name(pieces[i], lims[i])) return 2;
    if (targets[i] != nullptr) {
      targets[i]->name_l = static_cast<short>(pieces[i].size());
      std::memcpy(targets[i]->name, pieces[i].data(), pieces[i].size());
    }
  }
  if (count != nullptr) *count = static_cast<int>(npieces);
  return 0;
}

bool is_memory_libref(const std::string& libref) {
  Librefs& l = librefs();
  std::lock_guard lock(l.mutex);
  return l.memory.count(libref) != 0;
}

// Closes an output table of a memory libref: a normal close puts it in this
// thread's catalogue, replacing a table of the same name.
int close_memory_table(Table& t, int how) {
  if (how == XO_ABORT) return 0;
  if (t.state == Table::State::Defining) {
    return fail(kTableState, fmt::format("table {} was closed before its variables were defined", t.memory_key));
  }
  esf::host::MemoryTable table;
  table.name = std::move(t.memory_key);
  table.variables = std::move(t.vars);
  table.columns = std::move(t.columns);
  if (auto it = catalogued(table.name); it != memory_catalogue().end()) {
    *it = std::move(table);
  } else {
    memory_catalogue().push_back(std::move(table));
  }
  return 0;
}

int xoopen(XO_PARMS* xoparm, XOPNSTR* xopnstr) {
  if (xoparm == nullptr || xopnstr == nullptr) return kTableState;
  xoparm->fileid = nullptr;
  std::string libref = upper(fixed_text(xopnstr->name.lib.libref, sizeof xopnstr->name.lib.libref));
  if (libref.empty()) libref = "WORK";
  const int mem_l = std::clamp<int>(xopnstr->name.mem.name_l, 0, 32);
  const std::string mem = fixed_text(xopnstr->name.mem.name, static_cast<std::size_t>(mem_l));
  if (!is_name(mem, 32)) return fail(kTableBadName, fmt::format("{} is not a valid table name", quote_input(mem)));
  auto t = std::make_unique<Table>();
  t->file.vector = &g_vector;
  t->file.impl = t.get();
  if (xopnstr->opnmode == XO_OUTPUT && is_memory_libref(libref)) {
    t->output = true;
    t->in_memory = true;
    t->memory_key = libref + "." + upper(mem);
    xoparm->fileid = &t.release()->file;
    return 0;
  }
  if (xopnstr->opnmode == XO_INPUT && is_memory_libref(libref)) {
    t->path = libref + "." + upper(mem);
    if (int rc = read_memory_table(*t, t->path.string()); rc != 0) return rc;
    t->state = Table::State::Defined;
    xoparm->fileid = &t.release()->file;
    return 0;
  }
  const std::optional<fs::path> dir = esf::host::libref_path(libref);
  if (!dir) return fail(kTableNoLibrary, fmt::format("library reference {} is not assigned", libref));
  t->path = *dir / (lower(mem) + ".csv");
  if (xopnstr->opnmode == XO_OUTPUT) {
    t->output = true;
    std::error_code ec;
    if (!fs::is_directory(*dir, ec))
      return fail(kTableCannotCreate, fmt::format("library {} directory {} does not exist", libref, dir->string()));
    {
      Librefs& l = librefs();
      std::lock_guard lock(l.mutex);
      if (auto it = l.file_options.find(libref); it != l.file_options.end()) t->file_options = it->second;
    }
    t->temp_path = t->path;
    t->temp_path += fmt::format(".tmp{}-{}", static_cast<long>(::getpid()), g_temp_counter.fetch_add(1));
    t->fd = ::open(t->temp_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (t->fd < 0)
      return fail(kTableCannotCreate, fmt::format("cannot create {}: {}", t->path.string(), std::strerror(errno)));
  } else if (xopnstr->opnmode == XO_INPUT) {
    if (int rc = read_table(*t, t->path); rc != 0) return rc;
    t->state = Table::State::Defined;
  } else {
    return fail(kTableState, fmt::format("open mode {} is not supported", xopnstr->opnmode));
  }
  xoparm->fileid = &t.release()->file;
  return 0;
}

int xoclose(XOFILE* fileid, int how) {
  if (fileid == nullptr) return kTableState;
  std::unique_ptr<Table> t(table_of(fileid));
  if (!t->output) return 0;
  if (t->in_memory) return close_memory_table(*t, how);
  std::error_code ec;
  if (how == XO_ABORT) {
    discard_file(*t);
    return 0;
  }
  if (t->state == Table::State::Defining) {
    discard_file(*t);
    return fail(kTableState, fmt::format("table {} was closed before its variables were defined", t->path.string()));
  }
  if (!flush_pending(*t)) {
    discard_file(*t);
    return fail(kTableWrite, fmt::format("writing {} failed", t->path.string()));
  }
  if (t->file_options.fsync && ::fsync(t->fd) != 0) {
    discard_file(*t);
    return fail(kTableWrite, fmt::format("writing {} failed: it could not be flushed to the disk", t->path.string()));
  }
  const bool closed = ::close(t->fd) == 0;
  t->fd = -1;
  if (!closed) {
    discard_file(*t);
    return fail(kTableWrite, fmt::format("writing {} failed", t->path.string()));
  }
  fs::rename(t->temp_path, t->path, ec);
  if (ec) {
    fs::remove(t->temp_path, ec);
    return fail(kTableWrite, fmt::format("cannot rename the finished table to {}", t->path.string()));
  }
  const std::string key = fs::absolute(t->path).lexically_normal().string();
  Librefs& l = librefs();
  std::lock_guard lock(l.mutex);
  l.closed[key] = std::move(t->vars);
  return 0;
}

int xofprc(XO_PARMS* xoparm, int status, int flags) {
  if (status == 0) return status;
  // On an input table, `flags` names the variable (from 1) whose value in
  // the current row the status is about: the status is noted against it for
  // the report that follows, not reported here.
  if (xoparm != nullptr && xoparm->fileid != nullptr && flags > 0) {
    const Table& t = *table_of(xoparm->fileid);
    const auto var = static_cast<std::size_t>(flags - 1);
    if (!t.output && t.current != nullptr && t.next_row > 0 && t.next_row <= t.lines.size() && var < t.names.size()) {
      note_status_detail(status, fmt::format("{}: line {}, field {} ({}): {}", t.path.string(), t.lines[t.next_row - 1],
                                             flags, t.names[var], format_value((*t.current)[var])));
      return status;
    }
  }
  xprrlog(0, status);
  return status;
}

int xoinfo(XOFILE* fileid, int what, long* value) {
  if (fileid == nullptr || value == nullptr) return kTableState;
  Table& t = *table_of(fileid);
  if (what == 2 || what == 3) {
    *value = t.output ? -1 : static_cast<long>(t.rows.size());
    return 0;
  }
  return kTableState;
}

int xopnt(XO_PARMS* xoparm) {
  if (xoparm == nullptr || xoparm->fileid == nullptr) return kTableState;
  Table& t = *table_of(xoparm->fileid);
  if (t.output) return kTableState;
  long row = 0;
  if (xoparm->opcode == XO_PNTLAST) {
    row = static_cast<long>(t.rows.size());
  } else if (xoparm->opcode == XO_PNTOBS) {
    row = xoparm->obsnum;
  } else {
    return kTableState;
  }
  if (row < 1 || row > static_cast<long>(t.rows.size())) return XO_EOF;
  t.next_row = static_cast<std::size_t>(row - 1);
  return 0;
}

void xvnamei(NAMESTR* namestr) {
  if (namestr == nullptr) return;
  *namestr = NAMESTR{};
  namestr->ntype = 1;
  namestr->nlng = 8;
  std::memset(namestr->nformlong, ' ', sizeof namestr->nformlong);
}

int xvputi(XOFILE* fileid, int nvars, int /*flags*/, ptr* xvp) {
  if (xvp != nullptr) *xvp = nullptr;
  if (fileid == nullptr || xvp == nullptr) return kTableState;
  Table& t = *table_of(fileid);
  if (!t.output || t.state != Table::State::Opened) return fail(kTableState, "variables defined twice");
  if (nvars < 1) return fail(kTableBadVariable, "a table needs at least one variable");
  t.nvars = nvars;
  t.vars.reserve(static_cast<std::size_t>(nvars));
  t.slots.reserve(static_cast<std::size_t>(nvars));
  t.state = Table::State::Defining;
  *xvp = &t;
  return 0;
}

int xvputd(ptr xvp, NAMESTR* namestr, int /*flags*/, double* slot, int len, int /*a*/, int /*b*/) {
  if (xvp == nullptr || namestr == nullptr || slot == nullptr) return kTableState;
  Table& t = *table_of(xvp);
  if (t.state != Table::State::Defining) return fail(kTableState, "a variable was defined outside the definition");
  std::string name = text(namestr->name_p, namestr->namelen);
  if (static_cast<int>(t.vars.size()) >= t.nvars)
    return fail(kTableBadVariable, fmt::format("variable {} is one more than the {} announced", name, t.nvars));
  if (namestr->ntype != 1 || len != 8)
    return fail(kTableBadVariable, fmt::format("variable {}: only numeric variables of 8 bytes are supported", name));
  if (!is_name(name, 32))
    return fail(kTableBadVariable, fmt::format("{} is not a valid variable name", quote_input(name)));
  for (const esf::host::VariableInfo& v : t.vars) {
    if (same_name(v.name, name)) return fail(kTableBadVariable, fmt::format("variable {} is defined twice", name));
  }
  t.vars.push_back({std::move(name), text(namestr->label_p, namestr->nlablen), namestr->nfl, namestr->nfd});
  t.slots.push_back(slot);
  return 0;
}

int xvpute(ptr xvp) {
  if (xvp == nullptr) return kTableState;
  Table& t = *table_of(xvp);
  if (t.state != Table::State::Defining) return fail(kTableState, "the definition of variables was not begun");
  if (static_cast<int>(t.vars.size()) != t.nvars)
    return fail(kTableBadVariable, fmt::format("{} variables announced, {} defined", t.nvars, t.vars.size()));
  t.record.assign(t.vars.size(), ordinary_missing());
  t.state = Table::State::Defined;
  if (t.in_memory) {
    t.columns.resize(t.vars.size());
    return 0;
  }
  t.pending.reserve(kFileChunk + t.vars.size() * (esf::host::kMaxTableFieldChars + 1));
  for (std::size_t j = 0; j < t.vars.size(); ++j) {
    if (j > 0) t.pending.push_back(',');
    t.pending += t.vars[j].name;
  }
  t.pending.push_back('\n');
  return 0;
}

int xyvput(ptr xvp, int /*flags*/) {
  if (xvp == nullptr) return kTableState;
  Table& t = *table_of(xvp);
  if (!t.output || t.state != Table::State::Defined) return kTableState;
  double* const* slots = t.slots.data();
  stage_record(t, [slots](std::size_t j) { return *slots[j]; });
  return 0;
}

int xyvputn(ptr xvp, XO_PARMS* xoparm, long nrows, const double* const* first, const long* stride) {
  if (xvp == nullptr || xoparm == nullptr || xoparm->fileid == nullptr || first == nullptr || stride == nullptr)
    return kTableState;
  Table& t = *table_of(xvp);
  if (!t.output || t.state != Table::State::Defined) return kTableState;
  const std::size_t n = t.slots.size();
  if (t.in_memory && g_writes_before_failure.load() < 0 && nrows > 0) {
    // No record can fail: the values go straight into the columns, two
    // columns at a time, and the last row stays the record an add repeats.
    const auto rows = static_cast<std::size_t>(nrows);
    auto column = [&](std::size_t j) {
      std::vector<double>& c = t.columns[j];
      const std::size_t at = c.size();
      if (c.capacity() < at + rows) c.reserve(std::max(at + rows, 2 * c.capacity()));
      c.resize(at + rows);
      return c.data() + at;
    };
    std::size_t j = 0;
    for (; j + 1 < n; j += 2) {
      double* to0 = column(j);
      double* to1 = column(j + 1);
      const double* from0 = first[j];
      const double* from1 = first[j + 1];
      const long step0 = stride[j];
      const long step1 = stride[j + 1];
      for (std::size_t i = 0; i < rows; ++i) {
        to0[i] = *from0;
        to1[i] = *from1;
        from0 += step0;
        from1 += step1;
      }
    }
    if (j < n) {
      double* to = column(j);
      const double* from = first[j];
      const long step = stride[j];
      for (std::size_t i = 0; i < rows; ++i, from += step) to[i] = *from;
    }
    for (j = 0; j < n; ++j) t.record[j] = t.columns[j].back();
    return 0;
  }
  int last = 0;
  for (long i = 0; i < nrows; ++i) {
    stage_record(t, [&](std::size_t j) { return first[j][i * stride[j]]; });
    if (const int status = table_add(xoparm); status != 0) last = xofprc(xoparm, status, 4);
  }
  return last;
}

int xvputt(ptr xvp) {
  if (xvp == nullptr) return kTableState;
  Table& t = *table_of(xvp);
  if (!t.output || t.state != Table::State::Defined) return fail(kTableState, "the transfer was ended before it began");
  t.state = Table::State::Ended;
  return t.write_failed ? kTableWrite : 0;
}

int xvgeti(XOFILE* fileid, int /*flags*/, ptr* xvp) {
  if (xvp != nullptr) *xvp = nullptr;
  if (fileid == nullptr || xvp == nullptr) return kTableState;
  Table& t = *table_of(fileid);
  if (t.output) return kTableState;
  *xvp = &t;
  return 0;
}

int xvfind(ptr xvp, const tchar* name, int len, int* varnum) {
  if (varnum != nullptr) *varnum = 0;
  if (xvp == nullptr || name == nullptr) return kTableState;
  if (len < 0) len = static_cast<int>(std::strlen(name));
  Table& t = *table_of(xvp);
  const std::string wanted = upper(trim(std::string_view(name, static_cast<std::size_t>(len))));
  for (std::size_t j = 0; j < t.names.size(); ++j) {
    if (t.names[j] == wanted) {
      if (varnum != nullptr) *varnum = static_cast<int>(j) + 1;
      return 0;
    }
  }
  return fail(kTableNoVariable, fmt::format("{} has no variable {}", t.path.string(), wanted));
}

int xvname(ptr xvp, int varnum, NAMESTR** namestr) {
  if (namestr != nullptr) *namestr = nullptr;
  if (xvp == nullptr || namestr == nullptr) return kTableState;
  Table& t = *table_of(xvp);
  if (varnum < 1 || varnum > static_cast<int>(t.namestrs.size())) return kTableNoVariable;
  *namestr = &t.namestrs[static_cast<std::size_t>(varnum - 1)];
  return 0;
}

int xvgetd(ptr xvp, int varnum, int /*flags*/, double* buffer, int len, int /*a*/, int /*b*/, int /*c*/) {
  if (xvp == nullptr || buffer == nullptr || len != 8) return kTableState;
  Table& t = *table_of(xvp);
  if (varnum < 1 || varnum > static_cast<int>(t.names.size())) return kTableNoVariable;
  t.binds.emplace_back(varnum, buffer);
  return 0;
}

int xvsele(ptr xvp) { return xvp != nullptr ? 0 : kTableState; }
int xvgete(ptr xvp) { return xvp != nullptr ? 0 : kTableState; }

int xvgett(ptr xvp) {
  if (xvp == nullptr) return kTableState;
  table_of(xvp)->binds.clear();
  return 0;
}

int xyvget(ptr xvp, int /*flags*/) {
  if (xvp == nullptr) return kTableState;
  Table& t = *table_of(xvp);
  if (t.current == nullptr) return XO_EOF;
  for (const auto& [varnum, buffer] : t.binds) *buffer = (*t.current)[static_cast<std::size_t>(varnum - 1)];
  return 0;
}

}  // extern "C"

namespace esf::host {

void table_fail_write(long n) { g_writes_before_failure.store(n < 1 ? -1 : n - 1); }

void assign_libref(std::string_view libref, const fs::path& dir, TableFileOptions options) {
  if (!is_name(libref, 8))
    throw std::invalid_argument(
        fmt::format("{} is not a library reference (a name of at most 8 characters)", quote_input(libref)));
  Librefs& l = librefs();
  std::lock_guard lock(l.mutex);
  l.dirs[upper(libref)] = dir;
  l.file_options[upper(libref)] = options;
  l.memory.erase(upper(libref));
}

std::optional<fs::path> libref_path(std::string_view libref) {
  const std::string key = upper(libref);
  Librefs& l = librefs();
  std::lock_guard lock(l.mutex);
  auto it = l.dirs.find(key);
  if (it != l.dirs.end()) return it->second;
  if (key == "WORK") return fs::current_path();
  return std::nullopt;
}

void assign_memory_libref(std::string_view libref) {
  if (!is_name(libref, 8))
    throw std::invalid_argument(
        fmt::format("\"{}\" is not a library reference (a name of at most 8 characters)", libref));
  Librefs& l = librefs();
  std::lock_guard lock(l.mutex);
  l.memory.insert(upper(libref));
}

void put_memory_table(MemoryTable table) {
  const std::string key = upper(trim(table.name));
  Librefs& l = librefs();
  std::lock_guard lock(l.mutex);
  l.inputs[key] = std::move(table);
}

std::optional<MemoryTable> take_memory_table(std::string_view two_level_name) {
  const std::string name = upper(trim_view(two_level_name));
  const std::string key = name.find('.') == std::string::npos ? "WORK." + name : name;
  auto& catalogue = memory_catalogue();
  auto it = catalogued(key);
  if (it == catalogue.end()) return std::nullopt;
  MemoryTable table = std::move(*it);
  if (it != catalogue.end() - 1) *it = std::move(catalogue.back());
  catalogue.pop_back();
  return table;
}

char* write_table_value(char* out, double v) {
  if (is_missing(v)) {
    // "." is written as an empty field; "._" and ".A" to ".Z" by name.
    const auto third = static_cast<unsigned>((std::bit_cast<std::uint64_t>(v) >> 40) & 0xFFu);
    if (third == 0xFF) {
      *out++ = '.';
      *out++ = '_';
    } else if (third >= 0xE4 && third <= 0xFD) {
      *out++ = '.';
      *out++ = static_cast<char>('A' + (0xFD - third));
    }
    return out;
  }
  return write_number(out, v);
}

char* write_table_field(char* out, double v, std::size_t j, TimeForm time_id) {
  if (j == 0 && time_id != TimeForm::kNumber && !is_missing(v)) return write_time_text(out, v, time_id);
  return write_table_value(out, v);
}

void append_table_row(std::string& out, std::span<const double* const> columns, std::size_t row, TimeForm time_id) {
  const std::size_t at = out.size();
  out.resize(at + columns.size() * (kMaxTableFieldChars + 1));
  char* const begin = out.data() + at;
  char* p = begin;
  for (std::size_t j = 0; j < columns.size(); ++j) {
    if (j > 0) *p++ = ',';
    p = write_table_field(p, columns[j][row], j, time_id);
  }
  out.resize(at + static_cast<std::size_t>(p - begin));
}

void append_table_field(std::string& out, double v, std::size_t j, TimeForm time_id) {
  char text[kMaxTableFieldChars];
  out.append(text, write_table_field(text, v, j, time_id));
}

std::string format_table_value(double v) { return format_value(v); }

fs::path table_path(std::string_view two_level_name) {
  const std::string name = trim(two_level_name);
  const std::size_t dot = name.find('.');
  const std::string lib = dot == std::string::npos ? "WORK" : name.substr(0, dot);
  const std::string mem = dot == std::string::npos ? name : name.substr(dot + 1);
  std::optional<fs::path> dir = libref_path(lib);
  if (!dir) throw std::invalid_argument(fmt::format("library reference {} is not assigned", upper(lib)));
  return *dir / (lower(mem) + ".csv");
}

std::vector<VariableInfo> table_variables(const fs::path& file) {
  Librefs& l = librefs();
  std::lock_guard lock(l.mutex);
  auto it = l.closed.find(fs::absolute(file).lexically_normal().string());
  return it != l.closed.end() ? it->second : std::vector<VariableInfo>{};
}

}  // namespace esf::host
