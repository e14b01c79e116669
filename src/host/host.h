// C++ interface of the host stand-in for host programs: the command line
// program and the tests.  Module code never includes this header; it reaches
// the host only through the C routines of module/host_api.h.
//
// A typical method call from a host program:
//
//   using namespace esf::host;
//   List series = new_list();
//   set_text(series, "NAME", "AIR");
//   List data = add_list(series, "DATA");
//   for (double v : values) append_number(data, v);
//   ...
//   MethodCall call;                 // builds the PSCPLIST
//   call.list(series).list(spec).list(fit).list(eval).list(model).number(0);
//   loader.call(2, call);            // slot 2: mes1fit
//   int rc = call.return_code();     // read back from the last argument
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/number_text.h"
#include "host/time_text.h"
#include "module/host_api.h"

namespace esf::host {

// ---- Session ---------------------------------------------------------------

// The global control block and the anchor a host passes to mcn_main.
GCB* gcb();
GCB** gcb_anchor();
// The image descriptor a host passes to mcn_main.
VI_PIDB* pidb();
// The component all lists of this process belong to.
FMCOM* fmcomp();

// Ends the current task: deletes every resource slot of its blocks (running
// their destructors) so that the next use starts from nothing.  Each thread
// runs a task of its own, with its own slots, its own pool and its own
// memory-failure indication; end_task() ends the calling thread's task.  A
// thread that ran methods calls it before it ends.
void end_task();

// ---- Lists -----------------------------------------------------------------

// A new empty list of the session's component.
List new_list();
// Frees a list and its sublists.
void free_list(List list);
// Number of lists alive in the session's component.
std::size_t live_lists();

// Appends an item (unnamed when `name` is empty).
void append_number(List list, double value, std::string_view name = {});
void append_integer(List list, long value, std::string_view name = {});
void append_text(List list, std::string_view text, std::string_view name = {});
// Creates a list and appends it as an item of `list`; returns the new list.
List add_list(List list, std::string_view name = {});
// Sets a named item, replacing the first one so named or appending.
void set_number(List list, std::string_view name, double value);
void set_integer(List list, std::string_view name, long value);
void set_text(List list, std::string_view name, std::string_view text);

// The first item so named, or null.
const SLIST_ITEM* find_item(List list, std::string_view name);
// The sublist of the first item so named, or null.
List find_list(List list, std::string_view name);
// The numeric value of the first item so named, if it is numeric.
std::optional<double> find_number(List list, std::string_view name);
// The text of the first item so named, if it is a character item.
std::optional<std::string> find_text(List list, std::string_view name);
// Items in order.
std::vector<const SLIST_ITEM*> items(List list);
// The sublist an item holds, or null.
List sublist(const SLIST_ITEM* item);
// Name of an item ("" when unnamed).
std::string item_name(const SLIST_ITEM* item);

// Lists as JSON.  A list with no named items is an array, a list whose items
// all have distinct names an object (in item order), any other list
// {"$items": [{"name": ..., "value": ...}, ...]}.  Numbers keep their kind
// (integer or double); the ordinary missing value is null and the special
// ones {"$missing": ".A"}; characters are strings; sublists nest.
nlohmann::ordered_json to_json(List list);
// Builds a new list from JSON; throws std::invalid_argument naming the path
// of the offending value.
List from_json(const nlohmann::ordered_json& json);

// ---- Messages --------------------------------------------------------------

// A piece of input as a message shows it: in double quotes, with quotes and
// backslashes escaped and every byte that does not print (controls, NUL,
// bytes of 0x7F and above) written \xNN, cut after `max` bytes with a note
// of the full length, so that a message stays one readable line whatever
// the input holds.
std::string quote_input(std::string_view field, std::size_t max = 64);

// ---- Method calls ----------------------------------------------------------

// The parameter record of one method call, built argument by argument.
class MethodCall {
 public:
  MethodCall();
  MethodCall(const MethodCall&) = delete;
  MethodCall& operator=(const MethodCall&) = delete;

  MethodCall& list(List list);              // a list argument (null: missing)
  MethodCall& text(std::string_view text);  // a character argument
  MethodCall& number(double value);         // a numeric argument
  MethodCall& missing_number();             // a numeric argument that is missing

  PSCPLIST* plist() { return &plist_; }
  int nargs() const { return plist_.nargs; }
  // The double in argument `slot` as posretd counts (argument slot - 1), if
  // the method wrote it.
  std::optional<double> written(int slot) const;
  // The return code: what the method wrote into its last argument, as an
  // integer; nullopt when nothing was written there.
  std::optional<int> return_code() const;

 private:
  PSCPU u_{};
  PSCPLIST plist_{};
  std::vector<std::string> texts_;
};

// ---- Memory ----------------------------------------------------------------

// Blocks of the calling thread's pool not yet given back.
std::size_t pool_outstanding();
// Lets the next `n` allocations of the current pool succeed and every later
// one fail, until called again with a negative `n` (no limit).  Setting a
// limit clears xmemdef's indication; lifting it does not.
void pool_fail_after(long n);
// Makes the `n`-th record written to a table from now on (counting from 1)
// fail as a failed write does; a negative `n` lifts it.
void table_fail_write(long n);
// Fault injection for host programs: ESF_FAIL_ALLOCATION=N makes the N-th
// allocation of the pool and every later one fail, ESF_FAIL_TABLE_WRITE=N
// the N-th record written to a table.
void inject_faults_from_environment();

// ---- Options ---------------------------------------------------------------

// An option the host program hasn't set is taken from the environment
// variable ESF_OPTION_<NAME>, when that exists.
void set_option(std::string_view name, std::string_view value);
void clear_option(std::string_view name);

// ---- Custom interval cache ---------------------------------------------------

// Caches of custom interval tables alive (one for each task that used one).
std::size_t live_interval_caches();
// References held on the tables of all live caches.
long cached_interval_references();

// ---- Image conversion -------------------------------------------------------

// The status virv2g answers with (0, the default, lets it succeed).
void set_virv2g_status(int status);

// ---- Printing ----------------------------------------------------------------

// With capture on, print lines, status reports and debug lines collect in
// memory instead of going to stdout / stderr.
void capture_output(bool on);
std::string take_printed();  // print service lines, each ending in '\n'
std::string take_log();      // xprrlog reports and xebug lines

// ---- Tables ------------------------------------------------------------------

// How the output tables of a directory libref are written: the time ID
// (the first variable) as a number or, when the host program knows its
// values to be dates or datetimes, as ISO text; and whether a table's file
// is flushed to the disk (fsync) before it is renamed into place.
struct TableFileOptions {
  TimeForm time_id = TimeForm::kNumber;
  bool fsync = false;
};

// Assigns a library reference to a directory.  WORK is the current
// directory unless assigned.  Throws std::invalid_argument for a libref that
// is empty, longer than 8 characters or not a name.
void assign_libref(std::string_view libref, const std::filesystem::path& dir, TableFileOptions options = {});
// The directory of a libref, if assigned (WORK always is).
std::optional<std::filesystem::path> libref_path(std::string_view libref);
// The file of a table "lib.mem" (or "mem", in WORK): dir / lower(mem).csv.
std::filesystem::path table_path(std::string_view two_level_name);

// What an output table closed in this process said of its variables.
struct VariableInfo {
  std::string name;
  std::string label;
  int width = 0;     // format width
  int decimals = 0;  // format decimals
};
std::vector<VariableInfo> table_variables(const std::filesystem::path& file);

// An output table kept in memory: its variables in definition order and one
// column of values for each, missing values as the module wrote them.
struct MemoryTable {
  std::string name;  // "LIB.MEM", upper case
  std::vector<VariableInfo> variables;
  std::vector<std::vector<double>> columns;
  std::size_t rows() const { return columns.empty() ? 0 : columns.front().size(); }
};
// Output tables of `libref` stay in memory from now on (until the libref is
// assigned a directory).  Throws std::invalid_argument as assign_libref.
void assign_memory_libref(std::string_view libref);
// Places `table` under its name ("LIB.MEM" of a memory libref) for method
// calls on any thread to read as an input table, replacing one of the same
// name.
void put_memory_table(MemoryTable table);
// Takes the table "lib.mem" that the calling thread last closed normally
// under a memory libref; nullopt when there is none.  Each thread sees only
// the tables its own method calls wrote.
std::optional<MemoryTable> take_memory_table(std::string_view two_level_name);
// A value as a table file writes it: the shortest text that reads back to
// the same double, "" for the ordinary missing value, ".A" for a special one.
std::string format_table_value(double v);
// The same text written at `out`, which has room for kMaxTableValueChars
// characters (any of which it may overwrite); returns the end of the text.
// Allocates nothing.
inline constexpr int kMaxTableValueChars = kMaxNumberChars;
char* write_table_value(char* out, double v);
// Field `j` of a table's row as a table file writes it: the time ID (j == 0)
// as ISO text when `time_id` says so and it is not missing, every other value
// by write_table_value.  Room as for write_table_value, kMaxTableFieldChars.
inline constexpr int kMaxTableFieldChars = kMaxTimeTextChars;
char* write_table_field(char* out, double v, std::size_t j, TimeForm time_id);
// Appends row `row` of a table held as columns to `out`: its fields
// (write_table_field) separated by commas, without a line end.
void append_table_row(std::string& out, std::span<const double* const> columns, std::size_t row, TimeForm time_id);
// Field `j` of a row (write_table_field) appended to `out`.
void append_table_field(std::string& out, double v, std::size_t j, TimeForm time_id);

}  // namespace esf::host
