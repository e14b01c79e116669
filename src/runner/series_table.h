// Tables of many series: a long table (one row per series, time ID and
// value, the series named by one or more key columns, its rows in any order)
// or a wide one (one time ID column, one value column per series).
//
// A long table is read in two steps.  A first pass checks the shape of every
// row and learns the keys (in their order of first appearance), where each
// key's rows begin and end and how many there are, and the key of every row.
// Then the series are read in groups of consecutive keys whose rows together
// stay within a budget: each group's pass starts at the first row of its
// first key, keeps only the rows of its keys and stops once they are all
// read.  A file sorted by key is so read once more in all; an interleaved
// one once per group.  Either way memory holds the index (a few bytes a row)
// and one group's rows, not the table.
//
// A wide table is read in passes over groups of consecutive columns whose
// cells stay within the same budget, after a quick pass that counts its
// rows: once when it fits.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "runner/series_csv.h"

namespace esf::runner {

struct TableLayout {
  std::vector<std::string> by;    // key columns of a long table; empty for a wide one
  std::string id_column;          // the time ID (default: the first column not a key)
  std::vector<std::string> vars;  // value columns: one for a long table (default: the
                                  // next column); for a wide table the series, "*" for all
};

// The rows of one series as written, not yet read as times and values.
struct RawSeries {
  std::size_t ordinal = 0;       // the key's place in the order of first appearance
  std::vector<std::string> key;  // the key columns' values (wide: the column name)
  std::string id_column;
  std::string var_column;
  std::vector<long> lines;
  // The time ID and the value of every row as written, one after the other
  // in one text (no string per field): field k ends at ends[k].
  std::string text;
  std::vector<std::size_t> ends;

  void add_row(long line, std::string_view id, std::string_view value) {
    lines.push_back(line);
    text += id;
    ends.push_back(text.size());
    text += value;
    ends.push_back(text.size());
  }
  std::string_view id_text(std::size_t row) const { return field(2 * row); }
  std::string_view value_text(std::size_t row) const { return field(2 * row + 1); }

 private:
  std::string_view field(std::size_t k) const {
    const std::size_t begin = k == 0 ? 0 : ends[k - 1];
    return std::string_view(text).substr(begin, ends[k] - begin);
  }
};

// What a first look at the table found.
struct TableShape {
  std::string path;
  std::vector<std::string> key_columns;  // wide tables: {"series"}
  std::string id_column;
  std::size_t series = 0;
};

// Whether the header is the usual long form "unique_id,ds,y", which then
// needs no options.
bool is_unique_id_header(const std::string& path);

class SeriesTable {
 public:
  // Reads the header and makes the first pass.  Throws CsvError naming the
  // file, line and field of a malformed row.
  SeriesTable(std::string path, TableLayout layout);
  const TableShape& shape() const { return shape_; }
  // Hands every series to `take` in key order, each once its rows are all
  // read.  Throws CsvError (the file changed between the passes, or cannot
  // be read).
  void read(const std::function<void(RawSeries&&)>& take) const;
  // The rows of a long table, or the cells of a wide one, held in memory at
  // once while reading (at least one series' worth).
  void set_rows_in_memory(std::size_t rows) { rows_in_memory_ = rows; }

 private:
  // Where a key's rows lie in the file.
  struct KeyRows {
    std::vector<std::string> key;
    std::uint64_t first_offset = 0;  // byte offset of its first row
    long first_line = 0;
    std::size_t first_row = 0;  // index of its first row among the data rows
    long last_line = 0;
    std::size_t rows = 0;
  };
  void scan_long();
  void read_long(const std::function<void(RawSeries&&)>& take) const;
  void read_group(std::size_t first, std::size_t end, const std::function<void(RawSeries&&)>& take) const;
  void read_wide(const std::function<void(RawSeries&&)>& take) const;
  std::size_t count_wide_rows() const;
  std::vector<RawSeries> read_columns(std::size_t first, std::size_t end, std::size_t rows) const;

  TableLayout layout_;
  TableShape shape_;
  std::vector<std::string> header_;
  std::vector<std::size_t> key_cols_;
  std::size_t id_col_ = 0;
  std::vector<std::size_t> var_cols_;
  long header_line_ = 0;
  // Long tables: each key's rows, by ordinal, and the ordinal of every data
  // row in file order.
  std::vector<KeyRows> keys_;
  std::vector<std::uint32_t> row_key_;
  std::size_t rows_in_memory_ = std::size_t{1} << 20;
};

// The rows of a series read as times and values; throws CsvError naming the
// file, line and column of a field that is not one.
CsvSeries parse_raw_series(const RawSeries& raw, const std::string& path, TimeUnits units);

}  // namespace esf::runner
