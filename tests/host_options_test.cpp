// The host's custom interval cache extension. (Options, task slots,
// journals, format names and the kernel handle's transcoding serve the
// custom intervals, whose tests run through them; the memory pools serve
// the module, whose tests make them fail.)
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/host.h"

namespace {

std::vector<QKChar> wide(const std::string& s) { return std::vector<QKChar>(s.begin(), s.end()); }

// ---- The cache extension -------------------------------------------------------

class HostCache : public ::testing::Test {
 protected:
  void SetUp() override {
    jnl_ = wrjnlc(0, 0);
    QKHANDLE* qk = esf::host::gcb()->qkhandle;
    const auto name = wide("QKECINTC");
    ext_ = qk->loadExtension(qk, name.data(), 8, jnl_);
    ASSERT_NE(ext_, nullptr);
    cache_ = ext_->createCache(ext_, jnl_);
    ASSERT_NE(cache_, nullptr);
    map("MYCAL", "WORK", "CAL");
    map("MYCALX", "", "CALX");
  }
  void TearDown() override {
    ext_->destroyCache(cache_);
    jnl_->destroy(jnl_);
  }

  void map(const std::string& interval, const std::string& lib, const std::string& member) {
    auto i = wide(interval), l = wide(lib), m = wide(member);
    CINTCIntDSMap dsmap{i.data(), static_cast<int>(i.size()), l.data(), static_cast<int>(l.size()),
                        m.data(), static_cast<int>(m.size())};
    ASSERT_EQ(ext_->addIntervalMapDef(cache_, &dsmap), 0);
  }

  WRJnlh jnl_ = nullptr;
  CINTCexth ext_ = nullptr;
  CINTCobjh cache_ = nullptr;
};

TEST_F(HostCache, TokensResolveToTheLongestMappedNameWithMultiplierAndShift) {
  struct Case {
    const char* token;
    const char* interval;  // "" for no mapping
    int multiplier, shift;
  };
  const Case cases[] = {
      {"mycal", "MYCAL", 1, 0},      {"MYCAL2.3", "MYCAL", 2, 2}, {"MYCAL.1", "MYCAL", 1, 0},
      {"MYCALX12", "MYCALX", 12, 0},  // the longest mapped name wins
      {"MYCALY", "", -1, -1},        {"MYCAL2.3.4", "", -1, -1},  {"MYCAL.0", "", -1, -1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.token);
    const auto token = wide(c.token);
    QKChar interval[32], lib[8], member[32];
    CINTCIntDSMap dsmap{interval, -1, lib, 0, member, 0};
    int multiplier = 0, shift = 0;
    ASSERT_EQ(
        ext_->getDSMapByToken(cache_, token.data(), static_cast<int>(token.size()), 0, 0, &dsmap, &multiplier, &shift),
        0);
    EXPECT_EQ(std::string(interval, interval + dsmap.interval_l), c.interval);
    EXPECT_EQ(multiplier, c.multiplier);
    EXPECT_EQ(shift, c.shift);
  }
  const auto name = wide("MYCALX");
  CINTCIntDSMap cleared{};
  EXPECT_EQ(ext_->getDSMapByIntName(cache_, name.data(), 6, &cleared), 0);
  EXPECT_NE(ext_->getDSMapByIntName(cache_, name.data(), 4, &cleared), 0);  // "MYCA" is not mapped
}

}  // namespace
