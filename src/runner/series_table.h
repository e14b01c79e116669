// Tables of many series: a long table (one row per series, time ID and
// value, the series named by one or more key columns, its rows in any order)
// or a wide one (one time ID column, one value column per series).
//
// A long table is read twice: a first pass checks the shape of every row and
// learns the keys, their order of first appearance and the last line of each
// key; the second pass hands each series over as soon as its last row has
// been read.  A file sorted by key so holds one series in memory at a time.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <unordered_map>
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
  std::vector<std::string> id_texts;
  std::vector<std::string> value_texts;
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
  // Hands every series to `take`, each once its rows are all read.  Throws
  // CsvError (the file changed between the passes, or cannot be read).
  void read(const std::function<void(RawSeries&&)>& take) const;

 private:
  void scan_long();
  void read_long(const std::function<void(RawSeries&&)>& take) const;
  void read_wide(const std::function<void(RawSeries&&)>& take) const;

  TableLayout layout_;
  TableShape shape_;
  std::vector<std::string> header_;
  std::vector<std::size_t> key_cols_;
  std::size_t id_col_ = 0;
  std::vector<std::size_t> var_cols_;
  long header_line_ = 0;
  // Long tables: the key's text -> its ordinal, and the last line of each.
  std::unordered_map<std::string, std::size_t> ordinal_of_;
  std::vector<long> last_line_;
};

// The rows of a series read as times and values; throws CsvError naming the
// file, line and column of a field that is not one.
CsvSeries parse_raw_series(const RawSeries& raw, const std::string& path, TimeUnits units);

}  // namespace esf::runner
