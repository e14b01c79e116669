// Custom intervals: the option text INTERVALDS on any text, and a table of
// periods read from any bytes, then the calendar routines on the interval
// it defines. The first line of the input is the option text, the rest the
// table; the first byte of the option text also picks a multiplier and shift.
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "custom/custom.h"
#include "fuzz_support.h"
#include "intervals/interval.h"

namespace {

// Walks every mapping of an option text; the parser must come to its end.
void parse_option(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  std::vector<tchar> buffer(text.begin(), text.end());
  buffer.push_back('\0');
  CUSTOMINTERVAL mapping{};
  tchar* ctx = nullptr;
  std::size_t mappings = 0;
  while (parseIntervalDS(buffer.data(), &mapping, &ctx) == 0) {
    ESF_FUZZ_CHECK(++mappings <= buffer.size());
    ESF_FUZZ_CHECK(mapping.interval.name_l >= 0 && mapping.lib.name_l >= 0 && mapping.member.name_l >= 0);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  esf::fuzz::connect_module();
  static const bool configured = [] {
    esf::host::assign_libref("WORK", esf::fuzz::scratch_dir());
    esf::host::set_option("INTERVALDS", "(FZ=FUZZTAB)");
    return true;
  }();
  (void)configured;
  const std::string_view input = esf::fuzz::text_of(data, size);
  const std::size_t newline = input.find('\n');
  const std::string_view option = input.substr(0, newline);
  const std::string_view table = newline == std::string_view::npos ? std::string_view() : input.substr(newline + 1);
  parse_option(std::string(option));

  std::ofstream(esf::fuzz::scratch_dir() / "fuzztab.csv", std::ios::binary | std::ios::trunc)
      .write(table.data(), static_cast<std::streamsize>(table.size()));
  static const char* const kNames[] = {"FZ", "FZ2", "FZ3.2", "FZ2.2"};
  std::string name = kNames[option.empty() ? 0 : static_cast<unsigned char>(option[0]) % 4];
  INTERVAL iv{};
  if (zintstr(name.data(), static_cast<int>(name.size()), &iv) == 0) {
    for (const double x :
         {0.0, -1e6, 1e6, 21915.0, 3.0e6, static_cast<double>(kMinDate), static_cast<double>(kMaxDate)}) {
      for (const double n : {-2.0, 0.0, 1.0, 7.0}) (void)zintnx2(&iv, x, n);
      (void)zintck2(&iv, 0.0, x);
    }
    INTERVAL season{};
    int nseasons = 0;
    (void)zintsea(&iv, 0.0, &season, &nseasons);
  }
  esf::host::end_task();  // drops the task's interval cache and the table with it
  (void)esf::host::take_log();
  (void)esf::host::take_printed();
  return 0;
}
