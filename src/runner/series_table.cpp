#include "runner/series_table.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <string_view>
#include <unordered_map>

#include <fmt/format.h>

#include "host/host.h"

namespace esf::runner {
namespace {

// Reads lines in large blocks, counting them and knowing the byte offset
// where each begins, and dropping a byte-order mark and the carriage return
// of a CRLF file; can start over at a known line.
class BlockReader {
 public:
  explicit BlockReader(const std::string& path) : path_(path), file_(std::fopen(path.c_str(), "rb")) {
    if (file_ == nullptr) throw CsvError(fmt::format("{}: cannot open the file for reading", path));
    buffer_.resize(std::size_t{1} << 20);
  }
  BlockReader(const BlockReader&) = delete;
  BlockReader& operator=(const BlockReader&) = delete;
  ~BlockReader() { std::fclose(file_); }

  // Goes to `offset`, the start of the line after line `number`.
  void seek(std::uint64_t offset, long number) {
    if (std::fseek(file_, static_cast<long>(offset), SEEK_SET) != 0) {
      throw CsvError(fmt::format("{}: read error", path_));
    }
    begin_ = end_ = 0;
    next_offset_ = offset;
    number_ = number;
    eof_ = false;
  }
  // The next line, valid until the next call.
  bool next(std::string_view* line) {
    const char* nl = nullptr;
    while ((nl = static_cast<const char*>(std::memchr(buffer_.data() + begin_, '\n', end_ - begin_))) == nullptr) {
      if (eof_) break;
      fill();
    }
    if (nl == nullptr && begin_ == end_) return false;
    const std::size_t stop = nl != nullptr ? static_cast<std::size_t>(nl - buffer_.data()) : end_;
    *line = std::string_view(buffer_.data() + begin_, stop - begin_);
    offset_ = next_offset_;
    const std::size_t used = (nl != nullptr ? stop + 1 : stop) - begin_;
    next_offset_ += used;
    begin_ += used;
    ++number_;
    if (offset_ == 0 && line->substr(0, 3) == "\xEF\xBB\xBF") line->remove_prefix(3);
    if (!line->empty() && line->back() == '\r') line->remove_suffix(1);
    return true;
  }
  // The next line that is not blank, copied.
  bool next_nonblank(std::string* line) {
    std::string_view view;
    while (next(&view)) {
      if (view.find_first_not_of(" \t") != std::string_view::npos) {
        line->assign(view);
        return true;
      }
    }
    return false;
  }
  long number() const { return number_; }
  // Byte offset of the line last returned.
  std::uint64_t offset() const { return offset_; }

 private:
  // Moves what is left to the front and reads more, growing the buffer for a
  // line longer than it.
  void fill() {
    if (begin_ > 0) {
      std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
      end_ -= begin_;
      begin_ = 0;
    }
    if (end_ == buffer_.size()) buffer_.resize(buffer_.size() * 2);
    const std::size_t got = std::fread(buffer_.data() + end_, 1, buffer_.size() - end_, file_);
    if (got == 0) {
      if (std::ferror(file_)) throw CsvError(fmt::format("{}: read error", path_));
      eof_ = true;
    }
    end_ += got;
  }

  std::string path_;
  std::FILE* file_;
  std::vector<char> buffer_;
  std::size_t begin_ = 0, end_ = 0;
  std::uint64_t next_offset_ = 0, offset_ = 0;
  long number_ = 0;
  bool eof_ = false;
};

bool is_blank(std::string_view line) { return line.find_first_not_of(" \t") == std::string_view::npos; }

// The key of a row as one text; the unit separator cannot occur in a field
// that came out of the CSV reader in a way that makes two keys collide
// without their fields colliding too.
std::string key_text(const std::vector<std::string>& fields, const std::vector<std::size_t>& cols) {
  std::string k;
  for (std::size_t c : cols) {
    k += fields[c];
    k += '\x1f';
  }
  return k;
}

void split_row(const std::string& path, long lineno, std::string_view line, std::size_t width,
               std::vector<std::string>* fields) {
  if (!split_csv_line(line, fields)) throw CsvError(fmt::format("{}: line {}: unterminated quote", path, lineno));
  if (fields->size() != width) {
    throw CsvError(
        fmt::format("{}: line {}: {} field(s) where the header has {}", path, lineno, fields->size(), width));
  }
}

}  // namespace

bool is_unique_id_header(const std::string& path) {
  std::ifstream probe(path, std::ios::binary);
  if (!probe) return false;
  BlockReader in(path);
  std::string line;
  if (!in.next_nonblank(&line)) return false;
  std::vector<std::string> fields;
  return split_csv_line(line, &fields) && fields.size() >= 3 && fields[0] == "unique_id" && fields[1] == "ds" &&
         fields[2] == "y";
}

SeriesTable::SeriesTable(std::string path, TableLayout layout) : layout_(std::move(layout)) {
  shape_.path = std::move(path);
  const std::string& p = shape_.path;
  BlockReader in(p);
  std::string line;
  if (!in.next_nonblank(&line))
    throw CsvError(fmt::format("{}: line {}: the file has no header line", p, in.number() + 1));
  header_line_ = in.number();
  if (!split_csv_line(line, &header_)) {
    throw CsvError(fmt::format("{}: line {}: unterminated quote in the header", p, header_line_));
  }
  auto column = [&](const std::string& name, const char* role) -> std::size_t {
    for (std::size_t k = 0; k < header_.size(); ++k) {
      if (header_[k] == name) return k;
    }
    throw CsvError(fmt::format("{}: line {}: no column named {} in the header (the {})", p, header_line_,
                               host::quote_input(name), role));
  };
  auto used = [&](std::size_t k) {
    return std::find(key_cols_.begin(), key_cols_.end(), k) != key_cols_.end() ||
           (k == id_col_ && !layout_.id_column.empty());
  };
  for (const std::string& b : layout_.by) key_cols_.push_back(column(b, "series key"));
  // The time ID: named, or the first column that is not a key.
  if (!layout_.id_column.empty()) {
    id_col_ = column(layout_.id_column, "time ID");
  } else {
    id_col_ = header_.size();
    for (std::size_t k = 0; k < header_.size() && id_col_ == header_.size(); ++k) {
      if (!used(k)) id_col_ = k;
    }
    if (id_col_ == header_.size()) {
      throw CsvError(fmt::format("{}: line {}: no column is left for the time ID", p, header_line_));
    }
    layout_.id_column = header_[id_col_];
  }
  const bool wide = layout_.by.empty();
  if (wide && layout_.vars.size() == 1 && layout_.vars[0] == "*") {
    for (std::size_t k = 0; k < header_.size(); ++k) {
      if (k != id_col_) var_cols_.push_back(k);
    }
  } else {
    for (const std::string& v : layout_.vars) var_cols_.push_back(column(v, "values"));
  }
  if (!wide && var_cols_.empty()) {
    for (std::size_t k = 0; k < header_.size() && var_cols_.empty(); ++k) {
      if (!used(k) && k != id_col_) var_cols_.push_back(k);
    }
  }
  if (var_cols_.empty()) throw CsvError(fmt::format("{}: line {}: no column is left for the values", p, header_line_));
  if (!wide && var_cols_.size() > 1) {
    throw CsvError(fmt::format("{}: a table with key columns (--by) takes one value column", p));
  }
  for (std::size_t v : var_cols_) {
    if (v == id_col_ || std::find(key_cols_.begin(), key_cols_.end(), v) != key_cols_.end()) {
      throw CsvError(fmt::format("{}: line {}: column {} cannot be both the values and a key or the time ID", p,
                                 header_line_, host::quote_input(header_[v])));
    }
  }
  if (std::find(key_cols_.begin(), key_cols_.end(), id_col_) != key_cols_.end()) {
    throw CsvError(fmt::format("{}: line {}: column {} cannot be both a key and the time ID", p, header_line_,
                               host::quote_input(header_[id_col_])));
  }
  shape_.id_column = header_[id_col_];
  if (wide) {
    shape_.key_columns = {"series"};
    shape_.series = var_cols_.size();
  } else {
    for (std::size_t k : key_cols_) shape_.key_columns.push_back(header_[k]);
    scan_long();
  }
}

void SeriesTable::scan_long() {
  BlockReader in(shape_.path);
  std::string_view view;
  std::vector<std::string> fields;
  std::unordered_map<std::string, std::size_t> ordinal_of;
  while (in.number() < header_line_ && in.next(&view)) {
  }
  while (in.next(&view)) {
    if (is_blank(view)) continue;
    split_row(shape_.path, in.number(), view, header_.size(), &fields);
    auto [it, fresh] = ordinal_of.emplace(key_text(fields, key_cols_), keys_.size());
    if (fresh) {
      if (keys_.size() > std::numeric_limits<std::uint32_t>::max()) {
        throw CsvError(fmt::format("{}: line {}: more than {} series in one table", shape_.path, in.number(),
                                   std::numeric_limits<std::uint32_t>::max()));
      }
      KeyRows k;
      for (std::size_t c : key_cols_) k.key.push_back(fields[c]);
      k.first_offset = in.offset();
      k.first_line = in.number();
      k.first_row = row_key_.size();
      keys_.push_back(std::move(k));
    }
    KeyRows& k = keys_[it->second];
    k.last_line = in.number();
    ++k.rows;
    row_key_.push_back(static_cast<std::uint32_t>(it->second));
  }
  if (keys_.empty()) throw CsvError(fmt::format("{}: line {}: the file has no data rows", shape_.path, in.number()));
  row_key_.shrink_to_fit();
  shape_.series = keys_.size();
}

void SeriesTable::read(const std::function<void(RawSeries&&)>& take) const {
  if (layout_.by.empty()) {
    read_wide(take);
  } else {
    read_long(take);
  }
}

void SeriesTable::read_long(const std::function<void(RawSeries&&)>& take) const {
  std::size_t first = 0;
  while (first < keys_.size()) {
    std::size_t end = first + 1;
    std::size_t rows = keys_[first].rows;
    while (end < keys_.size() && rows + keys_[end].rows <= rows_in_memory_) rows += keys_[end++].rows;
    read_group(first, end, take);
    first = end;
  }
}

// The series of keys first..end-1: the pass starts at the first row of key
// `first` (keys are numbered in the order their first rows come) and ends
// once every series of the group is complete; each is handed on as soon as
// it and those before it are.
void SeriesTable::read_group(std::size_t first, std::size_t end, const std::function<void(RawSeries&&)>& take) const {
  auto changed = [&] { return CsvError(fmt::format("{}: the file changed while it was read", shape_.path)); };
  std::vector<RawSeries> group(end - first);
  for (std::size_t o = first; o < end; ++o) {
    RawSeries& r = group[o - first];
    r.ordinal = o;
    r.key = keys_[o].key;
    r.id_column = header_[id_col_];
    r.var_column = header_[var_cols_[0]];
    r.lines.reserve(keys_[o].rows);
    r.ends.reserve(2 * keys_[o].rows);
  }
  BlockReader in(shape_.path);
  in.seek(keys_[first].first_offset, keys_[first].first_line - 1);
  std::size_t row = keys_[first].first_row;
  std::size_t next = first;  // the next series to hand on
  std::string_view view;
  std::vector<std::string> fields;
  while (next < end && in.next(&view)) {
    if (is_blank(view)) continue;
    if (row >= row_key_.size()) throw changed();
    const std::size_t o = row_key_[row++];
    if (o < first || o >= end) continue;
    split_row(shape_.path, in.number(), view, header_.size(), &fields);
    for (std::size_t c = 0; c < key_cols_.size(); ++c) {
      if (fields[key_cols_[c]] != keys_[o].key[c]) throw changed();
    }
    group[o - first].add_row(in.number(), fields[id_col_], fields[var_cols_[0]]);
    while (next < end && group[next - first].lines.size() == keys_[next].rows) {
      take(std::move(group[next - first]));
      group[next - first] = RawSeries{};
      ++next;
    }
  }
  if (next < end) throw changed();
}

// A wide table is read in passes over groups of consecutive columns whose
// cells stay within the budget, after a quick pass that counts the rows.  A
// table that fits is so read once, and memory holds one group's cells.
void SeriesTable::read_wide(const std::function<void(RawSeries&&)>& take) const {
  const std::size_t rows = count_wide_rows();
  for (std::size_t first = 0; first < var_cols_.size();) {
    const std::size_t end = first + std::clamp<std::size_t>(rows_in_memory_ / rows, 1, var_cols_.size() - first);
    std::vector<RawSeries> group = read_columns(first, end, rows);
    for (RawSeries& r : group) take(std::move(r));
    first = end;
  }
}

// The data rows: the lines after the header that are not blank (at least one).
std::size_t SeriesTable::count_wide_rows() const {
  BlockReader in(shape_.path);
  std::string_view view;
  std::size_t rows = 0;
  while (in.next(&view)) {
    if (in.number() > header_line_ && !is_blank(view)) ++rows;
  }
  if (rows == 0) throw CsvError(fmt::format("{}: line {}: the file has no data rows", shape_.path, in.number()));
  return rows;
}

// One pass over the rows for the value columns first..end-1.
std::vector<RawSeries> SeriesTable::read_columns(std::size_t first, std::size_t end, std::size_t rows) const {
  std::vector<RawSeries> group(end - first);
  for (std::size_t j = first; j < end; ++j) {
    RawSeries& r = group[j - first];
    r.ordinal = j;
    r.key = {header_[var_cols_[j]]};
    r.id_column = header_[id_col_];
    r.var_column = header_[var_cols_[j]];
    r.lines.reserve(rows);
    r.ends.reserve(2 * rows);
  }
  BlockReader in(shape_.path);
  std::string_view view;
  std::vector<std::string> fields;
  while (in.number() < header_line_ && in.next(&view)) {
  }
  std::size_t seen = 0;
  while (in.next(&view)) {
    if (is_blank(view)) continue;
    if (++seen > rows) break;
    split_row(shape_.path, in.number(), view, header_.size(), &fields);
    for (std::size_t j = first; j < end; ++j)
      group[j - first].add_row(in.number(), fields[id_col_], fields[var_cols_[j]]);
  }
  if (seen != rows) throw CsvError(fmt::format("{}: the file changed while it was read", shape_.path));
  return group;
}

CsvSeries parse_raw_series(const RawSeries& raw, const std::string& path, TimeUnits units) {
  CsvSeries s;
  s.path = path;
  s.id_column = raw.id_column;
  s.var_column = raw.var_column;
  s.rows.reserve(raw.lines.size());
  for (std::size_t i = 0; i < raw.lines.size(); ++i) {
    s.rows.push_back(
        parse_csv_row(path, raw.lines[i], raw.id_text(i), raw.value_text(i), raw.id_column, raw.var_column, units));
  }
  return s;
}

}  // namespace esf::runner
