#include "runner/series_table.h"

#include <algorithm>
#include <fstream>

#include <fmt/format.h>

namespace esf::runner {
namespace {

// Reads lines, counting them and dropping a byte-order mark and the carriage
// return of a CRLF file.
class LineReader {
 public:
  explicit LineReader(const std::string& path) : path_(path), in_(path, std::ios::binary) {
    if (!in_) throw CsvError(fmt::format("{}: cannot open the file for reading", path));
  }
  bool next(std::string* line) {
    if (!std::getline(in_, *line)) {
      if (in_.bad()) throw CsvError(fmt::format("{}: read error", path_));
      return false;
    }
    ++number_;
    if (number_ == 1 && line->compare(0, 3, "\xEF\xBB\xBF") == 0) line->erase(0, 3);
    if (!line->empty() && line->back() == '\r') line->pop_back();
    return true;
  }
  long number() const { return number_; }
  // The next line that is not blank.
  bool next_nonblank(std::string* line) {
    while (next(line)) {
      if (line->find_first_not_of(" \t") != std::string::npos) return true;
    }
    return false;
  }

 private:
  std::string path_;
  std::ifstream in_;
  long number_ = 0;
};

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

void split_row(const std::string& path, long lineno, const std::string& line, std::size_t width,
               std::vector<std::string>* fields) {
  if (!split_csv_line(line, fields)) throw CsvError(fmt::format("{}: line {}: unterminated quote", path, lineno));
  if (fields->size() != width) {
    throw CsvError(fmt::format("{}: line {}: {} field(s) where the header has {}", path, lineno, fields->size(), width));
  }
}

}  // namespace

bool is_unique_id_header(const std::string& path) {
  std::ifstream probe(path, std::ios::binary);
  if (!probe) return false;
  LineReader in(path);
  std::string line;
  if (!in.next_nonblank(&line)) return false;
  std::vector<std::string> fields;
  return split_csv_line(line, &fields) && fields.size() >= 3 && fields[0] == "unique_id" && fields[1] == "ds" &&
         fields[2] == "y";
}

SeriesTable::SeriesTable(std::string path, TableLayout layout) : layout_(std::move(layout)) {
  shape_.path = std::move(path);
  const std::string& p = shape_.path;
  LineReader in(p);
  std::string line;
  if (!in.next_nonblank(&line)) throw CsvError(fmt::format("{}: line {}: the file has no header line", p, in.number() + 1));
  header_line_ = in.number();
  if (!split_csv_line(line, &header_)) {
    throw CsvError(fmt::format("{}: line {}: unterminated quote in the header", p, header_line_));
  }
  auto column = [&](const std::string& name, const char* role) -> std::size_t {
    for (std::size_t k = 0; k < header_.size(); ++k) {
      if (header_[k] == name) return k;
    }
    throw CsvError(fmt::format("{}: line {}: no column named '{}' in the header (the {})", p, header_line_, name, role));
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
      throw CsvError(fmt::format("{}: line {}: column '{}' cannot be both the values and a key or the time ID", p,
                                 header_line_, header_[v]));
    }
  }
  if (std::find(key_cols_.begin(), key_cols_.end(), id_col_) != key_cols_.end()) {
    throw CsvError(fmt::format("{}: line {}: column '{}' cannot be both a key and the time ID", p, header_line_,
                               header_[id_col_]));
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
  LineReader in(shape_.path);
  std::string line;
  std::vector<std::string> fields;
  while (in.next(&line) && in.number() < header_line_) {
  }
  while (in.next(&line)) {
    if (line.find_first_not_of(" \t") == std::string::npos) continue;
    split_row(shape_.path, in.number(), line, header_.size(), &fields);
    auto [it, fresh] = ordinal_of_.emplace(key_text(fields, key_cols_), last_line_.size());
    if (fresh) last_line_.push_back(0);
    last_line_[it->second] = in.number();
  }
  if (last_line_.empty()) throw CsvError(fmt::format("{}: line {}: the file has no data rows", shape_.path, in.number()));
  shape_.series = last_line_.size();
}

void SeriesTable::read(const std::function<void(RawSeries&&)>& take) const {
  if (layout_.by.empty()) {
    read_wide(take);
  } else {
    read_long(take);
  }
}

void SeriesTable::read_long(const std::function<void(RawSeries&&)>& take) const {
  LineReader in(shape_.path);
  std::string line;
  std::vector<std::string> fields;
  while (in.next(&line) && in.number() < header_line_) {
  }
  // Series whose last row is still to come, by ordinal.
  std::unordered_map<std::size_t, RawSeries> open;
  while (in.next(&line)) {
    if (line.find_first_not_of(" \t") == std::string::npos) continue;
    split_row(shape_.path, in.number(), line, header_.size(), &fields);
    const auto it = ordinal_of_.find(key_text(fields, key_cols_));
    if (it == ordinal_of_.end()) throw CsvError(fmt::format("{}: the file changed while it was read", shape_.path));
    auto [s, fresh] = open.try_emplace(it->second);
    RawSeries& r = s->second;
    if (fresh) {
      r.ordinal = it->second;
      for (std::size_t k : key_cols_) r.key.push_back(fields[k]);
      r.id_column = header_[id_col_];
      r.var_column = header_[var_cols_[0]];
    }
    r.lines.push_back(in.number());
    r.id_texts.push_back(std::move(fields[id_col_]));
    r.value_texts.push_back(std::move(fields[var_cols_[0]]));
    if (in.number() == last_line_[it->second]) {
      RawSeries done = std::move(r);
      open.erase(s);
      take(std::move(done));
    }
  }
  if (!open.empty()) throw CsvError(fmt::format("{}: the file changed while it was read", shape_.path));
}

void SeriesTable::read_wide(const std::function<void(RawSeries&&)>& take) const {
  LineReader in(shape_.path);
  std::string line;
  std::vector<std::string> fields;
  while (in.next(&line) && in.number() < header_line_) {
  }
  std::vector<RawSeries> all(var_cols_.size());
  for (std::size_t j = 0; j < var_cols_.size(); ++j) {
    all[j].ordinal = j;
    all[j].key = {header_[var_cols_[j]]};
    all[j].id_column = header_[id_col_];
    all[j].var_column = header_[var_cols_[j]];
  }
  while (in.next(&line)) {
    if (line.find_first_not_of(" \t") == std::string::npos) continue;
    split_row(shape_.path, in.number(), line, header_.size(), &fields);
    for (std::size_t j = 0; j < var_cols_.size(); ++j) {
      all[j].lines.push_back(in.number());
      all[j].id_texts.push_back(fields[id_col_]);
      all[j].value_texts.push_back(fields[var_cols_[j]]);
    }
  }
  if (all.empty() || all[0].lines.empty()) {
    throw CsvError(fmt::format("{}: line {}: the file has no data rows", shape_.path, in.number()));
  }
  for (RawSeries& r : all) take(std::move(r));
}

CsvSeries parse_raw_series(const RawSeries& raw, const std::string& path, TimeUnits units) {
  CsvSeries s;
  s.path = path;
  s.id_column = raw.id_column;
  s.var_column = raw.var_column;
  s.rows.reserve(raw.lines.size());
  for (std::size_t i = 0; i < raw.lines.size(); ++i) {
    s.rows.push_back(
        parse_csv_row(path, raw.lines[i], raw.id_texts[i], raw.value_texts[i], raw.id_column, raw.var_column, units));
  }
  return s;
}

}  // namespace esf::runner
