// Host options, memory pools, task resource slots, journals, the kernel
// handle's transcoding and the custom interval cache extension.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/host.h"

namespace {

std::vector<QKChar> wide(const std::string& s) { return std::vector<QKChar>(s.begin(), s.end()); }

TEST(HostOptions, OptionValuesAreCopiesFoundWithoutRegardToCase) {
  int len = -1;
  const tchar* unset = xoptcgt("NOSUCHOPTION", &len);
  ASSERT_NE(unset, nullptr);
  EXPECT_EQ(len, 0);

  esf::host::set_option("IntervalDS", "(mycal=work.cal)");
  tchar* value = xoptcgt("INTERVALDS", &len);
  ASSERT_EQ(std::string(value, static_cast<size_t>(len)), "(mycal=work.cal)");
  value[1] = 'X';  // a caller may upper-case its copy in place
  value = xoptcgt("intervalds", &len);
  EXPECT_EQ(std::string(value, static_cast<size_t>(len)), "(mycal=work.cal)");
  esf::host::clear_option("INTERVALDS");
  xoptcgt("INTERVALDS", &len);
  EXPECT_EQ(len, 0);
}

TEST(HostPool, BlocksAreCountedAndFailuresReportedOnce) {
  VMPOOL* pool = esf::host::gcb()->curpool;
  const std::size_t before = esf::host::pool_outstanding();
  auto* cleared = static_cast<unsigned char*>(vmalcp_handler(pool, 64, VM_NUMBERS));
  ASSERT_NE(cleared, nullptr);
  for (int i = 0; i < 64; ++i) ASSERT_EQ(cleared[i], 0);
  void* plain = vmalloc_handler(pool, 16, VM_FLAGS);
  ASSERT_NE(plain, nullptr);
  EXPECT_EQ(esf::host::pool_outstanding(), before + 2);
  EXPECT_EQ(xmemdef(), 0);

  esf::host::pool_fail_after(1);
  void* last = pool->alloc(pool, 8, VM_NUMBERS);
  void* refused = pool->alloc(pool, 8, VM_NUMBERS);
  esf::host::pool_fail_after(-1);
  EXPECT_NE(last, nullptr);
  EXPECT_EQ(refused, nullptr);
  EXPECT_NE(xmemdef(), 0);  // the failure is seen once ...
  EXPECT_EQ(xmemdef(), 0);  // ... and then cleared

  EXPECT_EQ(vmfree_handler(pool, cleared, 0, 4), 0);
  EXPECT_EQ(pool->free(pool, plain, 0, 4), 0);
  EXPECT_EQ(pool->free(pool, last, 0, 4), 0);
  EXPECT_NE(pool->free(pool, last, 0, 4), 0);  // not a live block any more
  EXPECT_EQ(esf::host::pool_outstanding(), before);
}

// Counts destructor runs of task slots.
int g_destroyed = 0;
void count_destroy(rebid reb, rebslotid slot) {
  ptr value = nullptr;
  // The slot's pointer is still readable while its destructor runs.
  if (wtrsget(reb, slot, &value) == 0 && value != nullptr) ++*static_cast<int*>(value);
  ++g_destroyed;
}

TEST(HostTask, NamedSlotsHoldPointersUntilDeleted) {
  rebid reb = esf::host::gcb()->task->xreb;
  const char* name = "_TESTSLOT_";
  rebslotid slot = 0;
  EXPECT_EQ(xytngl(reb, XYT_LOOKUP, name, 10, &slot, nullptr), XYT_NOTFOUND);

  int payload = 0;
  ASSERT_EQ(
      wtrscrt(reb, reinterpret_cast<REBDTOR>(vir2g(reinterpret_cast<ptr>(count_destroy), nullptr)), &payload, &slot),
      0);
  ASSERT_EQ(xytnsl(reb, XYT_ENTER, name, 10, slot), 0);
  rebslotid found = 0;
  rebid where = nullptr;
  ASSERT_EQ(xytngl(reb, XYT_LOOKUP, name, 10, &found, &where), 0);
  EXPECT_EQ(found, slot);
  EXPECT_EQ(where, reb);
  ptr value = nullptr;
  ASSERT_EQ(wtrsget(reb, slot, &value), 0);
  EXPECT_EQ(value, &payload);

  g_destroyed = 0;
  ASSERT_EQ(wtrsdel(reb, slot), 0);
  EXPECT_EQ(g_destroyed, 1);
  EXPECT_EQ(payload, 1);
  EXPECT_EQ(xytngl(reb, XYT_LOOKUP, name, 10, &found, nullptr), XYT_NOTFOUND);
  EXPECT_NE(wtrsdel(reb, slot), 0);

  // Ending the task runs the destructors of the slots left.
  ASSERT_EQ(wtrscrt(reb, count_destroy, &payload, &slot), 0);
  g_destroyed = 0;
  esf::host::end_task();
  EXPECT_EQ(g_destroyed, 1);
}

TEST(HostKernel, JournalAndTranscoding) {
  WRJnlh jnl = wrjnlc(0, 0);
  ASSERT_NE(jnl, nullptr);
  EXPECT_EQ(jnl->sig, WRJNL_SIG);
  QKStatus rc = 1;
  EXPECT_EQ(jnl->dumpToList(jnl, &rc), 0);
  EXPECT_EQ(rc, 0);

  QKHANDLE* qk = esf::host::gcb()->qkhandle;
  QKChar buf[4];
  QKMemSize out = 0;
  // Cut to the room given, in whole wide characters.
  ASSERT_EQ(qk->toWide("MYCAL", 5, buf, sizeof buf, &out), 0);
  EXPECT_EQ(out, 4 * sizeof(QKChar));
  EXPECT_EQ(buf[3], 'A');
  char back[8];
  ASSERT_EQ(qk->fromWide(buf, out, back, sizeof back, &out), 0);
  EXPECT_EQ(std::string(back, out), "MYCA");
  const QKChar beyond[1] = {0x263A};
  EXPECT_NE(qk->fromWide(beyond, sizeof beyond, back, sizeof back, &out), 0);

  const auto name = wide("qkecintc");
  EXPECT_NE(qk->loadExtension(qk, name.data(), 8, jnl), nullptr);
  const auto other = wide("nothere");
  EXPECT_EQ(qk->loadExtension(qk, other.data(), 7, jnl), nullptr);
  ASSERT_EQ(jnl->dumpToList(jnl, &rc), 0);
  EXPECT_NE(rc, 0);  // the refusal left its status
  jnl->destroy(jnl);
}

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

TEST(HostFormats, AttributesOfKnownFormatNames) {
  FATTRSTR attr{};
  int code = 0;
  ASSERT_EQ(xfrname(0, "date    ", 8, 'F', &attr, &code), 0);
  EXPECT_GT(code, 0);
  EXPECT_EQ(attr.fwdef, 7);
  EXPECT_GE(attr.fwmax, 9);
  ASSERT_EQ(xfrname(0, "DATETIME", 8, 'F', &attr, &code), 0);
  EXPECT_EQ(attr.fwdef, 16);
  EXPECT_NE(xfrname(0, "NOSUCHFMT", 9, 'F', &attr, &code), 0);
  EXPECT_EQ(code, 0);
}

}  // namespace
