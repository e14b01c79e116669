// The host's named lists and the JSON form of lists. (Method arguments are
// read and written through every method call of the module's tests.)
#include <bit>
#include <cstdint>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "host/host.h"
#include "primitives/primitives.h"

namespace {

// Frees the lists a test made, whatever happens.
struct ListGuard {
  List list;
  explicit ListGuard(List l) : list(l) {}
  ~ListGuard() { esf::host::free_list(list); }
};

// A list with one item of every kind:
//   NUM=2.5  INT=7  TEXT="abc  "  SUB=(X=1)  SHORT=3  unnamed 9.0
List sample_list() {
  List list = esf::host::new_list();
  esf::host::append_number(list, 2.5, "NUM");
  esf::host::append_integer(list, 7, "INT");
  esf::host::append_text(list, "abc  ", "TEXT");
  List sub = esf::host::add_list(list, "SUB");
  esf::host::append_number(sub, 1.0, "X");
  slsns(list, 3, "SHORT", 5, 1, 1);
  esf::host::append_number(list, 9.0);
  return list;
}

TEST(HostLists, DefaultsOfAbsentItems) {
  ListGuard g(esf::host::new_list());
  double d = 0;
  const double dflt = 4.25;
  // A numeric default is stored, yet the answer still says "absent".
  EXPECT_NE(slgnd(g.list, "X", 1, 1, 1, &d, &dflt), 0);
  EXPECT_EQ(d, 4.25);
  // A missing value is read as a double; as an integer it is refused, unread.
  esf::host::append_number(g.list, esf::kMissing, "M");
  long i = 5;
  EXPECT_EQ(slgni(g.list, "M", 1, 1, 1, &i, nullptr), 2);
  EXPECT_EQ(i, 5);
  EXPECT_EQ(slgnd(g.list, "M", 1, 1, 1, &d, nullptr), 0);
  EXPECT_TRUE(esf::is_missing(d));
  // A character default is an answer: the caller goes on.
  tchar* s = nullptr;
  int n = 0;
  EXPECT_EQ(slgnc(g.list, "NAME", 4, 1, 1, &s, &n, "NONE", 4), 0);
  EXPECT_EQ(std::string(s, static_cast<size_t>(n)), "NONE");
  // Without a default an absent item stops the caller.
  EXPECT_NE(slgnc(g.list, "NAME", 4, 1, 1, &s, &n, nullptr, 0), 0);
}

TEST(HostLists, DeleteSearchAndRename) {
  ListGuard g(esf::host::new_list());
  for (const char* t : {"A", "B", "A ", "C"}) esf::host::append_text(g.list, t, "ITEM");
  slni(g.list, 4, "LAST", 4);
  // The string search ignores trailing blanks; the name search starts where asked.
  EXPECT_EQ(slsrchc(g.list, "A", 1, 1, 0, 2, 1), 3);
  EXPECT_EQ(slsrchc(g.list, "a", 1, 1, 0, 1, 1), 0);
  EXPECT_EQ(slsrchn(g.list, "last", 4, 1, 1), 4);
  EXPECT_EQ(slsrchn(g.list, "ITEM", 4, 1, 4), 0);
  // Deleting closes up the indexes, also at the tail.
  ASSERT_EQ(slditm(g.list, 1), 0);
  ASSERT_EQ(slditm(g.list, 3), 0);
  EXPECT_EQ(g.list->length, 2);
  esf::host::append_text(g.list, "D");
  EXPECT_EQ(esf::host::items(g.list).size(), 3u);  // the chain from the head reaches the new tail
  tchar* s = nullptr;
  int n = 0;
  ASSERT_EQ(slitmc(g.list, 3, &s, &n), 0);
  EXPECT_EQ(std::string(s, static_cast<size_t>(n)), "D");
  EXPECT_NE(slditm(g.list, 4), 0);
  // Inserting at the front and in the middle keeps every position right.
  ASSERT_EQ(slinsd(g.list, 1.0, 1, nullptr, 0), 0);
  ASSERT_EQ(slinsd(g.list, 3.0, 3, nullptr, 0), 0);
  std::vector<std::string> seen;
  for (SLIndex i = 1; i <= g.list->length; ++i) {
    seen.push_back(slitmc(g.list, i, &s, &n) == 0 ? std::string(s, static_cast<size_t>(n))
                                                  : std::to_string(static_cast<int>(slgetnv(
                                                        esf::host::items(g.list)[static_cast<size_t>(i - 1)], 0))));
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"1", "B", "3", "A ", "D"}));
}

TEST(HostLists, CopyIsDeepAndFreeIsComplete) {
  const std::size_t before = esf::host::live_lists();
  {
    ListGuard g(sample_list());
    const ListId copy_id = slcopy(g.list, 0, 0, esf::host::fmcomp());
    ASSERT_NE(copy_id, 0);
    ListGuard copy(slistp(copy_id, esf::host::fmcomp()));
    EXPECT_EQ(esf::host::to_json(copy.list), esf::host::to_json(g.list));
    // Changing the copy's sublist leaves the original alone.
    esf::host::set_number(esf::host::find_list(copy.list, "SUB"), "X", 5.0);
    EXPECT_EQ(esf::host::find_number(esf::host::find_list(g.list, "SUB"), "X"), 1.0);
  }
  EXPECT_EQ(esf::host::live_lists(), before);
}

// ---- JSON ----------------------------------------------------------------------

TEST(HostJson, RoundTripKeepsKindsOrderNamesAndMissingValues) {
  ListGuard g(esf::host::new_list());
  List l = g.list;
  esf::host::append_number(l, 1.0 / 3.0, "THIRD");
  esf::host::append_number(l, esf::kMissing, "DOT");
  esf::host::append_number(l, esf::missing_letter('M'), "DOTM");
  esf::host::append_integer(l, -4, "COUNT");
  esf::host::append_text(l, "x\"y", "QUOTE");
  List dup = esf::host::add_list(l, "DUP");  // duplicate names and an unnamed item
  esf::host::append_number(dup, 1, "A");
  esf::host::append_number(dup, 2, "A");
  esf::host::append_number(dup, 3);
  List mixed = esf::host::add_list(l, "MIXED");  // distinct names and an unnamed item
  esf::host::append_number(mixed, 1, "A");
  esf::host::append_number(mixed, 2);
  List arr = esf::host::add_list(l, "DATA");
  for (double v : {112.0, 118.5, 1e300}) esf::host::append_number(arr, v);
  esf::host::add_list(l, "EMPTY");

  // Named items make an object, unnamed ones an array, and anything else a
  // list of name and value pairs; the ordinary missing value is null.
  const nlohmann::ordered_json json = esf::host::to_json(l);
  EXPECT_TRUE(json["DOT"].is_null());
  EXPECT_TRUE(json["DATA"].is_array());
  EXPECT_EQ(json["MIXED"]["$items"][1]["name"], nullptr);
  EXPECT_EQ(json["DUP"]["$items"][1]["name"], "A");
  ListGuard back(esf::host::from_json(nlohmann::ordered_json::parse(json.dump())));
  EXPECT_EQ(esf::host::to_json(back.list), json);

  // Kinds, bits and the special missing kinds survive.
  const auto items = esf::host::items(back.list);
  ASSERT_EQ(items.size(), 9u);
  EXPECT_EQ(std::bit_cast<std::uint64_t>(items[0]->data.d), std::bit_cast<std::uint64_t>(1.0 / 3.0));
  EXPECT_EQ(std::bit_cast<std::uint64_t>(items[1]->data.d), 0xFFFFFE0000000000u);
  EXPECT_EQ(std::bit_cast<std::uint64_t>(items[2]->data.d), std::bit_cast<std::uint64_t>(esf::missing_letter('M')));
  EXPECT_EQ(items[3]->type, SL_INTEGER);
  EXPECT_EQ(esf::host::find_text(back.list, "QUOTE"), "x\"y");
  List dup_back = esf::host::find_list(back.list, "DUP");
  ASSERT_NE(dup_back, nullptr);
  EXPECT_EQ(dup_back->length, 3);
  EXPECT_EQ(slsrchn(dup_back, "A", 1, 2, 1), 2);
}

TEST(HostJson, BadInputNamesThePathAndLeavesNoList) {
  const std::size_t before = esf::host::live_lists();
  const std::string bad[] = {
      R"({"DATA": [1, {"$missing": "AB"}]})", R"({"$items": [{"name": 3, "value": 1}]})", R"(17)",
      std::string(100000, '[') + std::string(100000, ']'),  // deeper than any model list: refused, not a crash
  };
  const char* where[] = {"$.DATA[1]", "$.$items[0].name", "$", "nest more than 64 levels deep, at $[0][0]"};
  for (int i = 0; i < 4; ++i) {
    SCOPED_TRACE(bad[i]);
    try {
      esf::host::from_json(nlohmann::ordered_json::parse(bad[i]));
      ADD_FAILURE() << "accepted";
    } catch (const std::invalid_argument& e) {
      EXPECT_NE(std::string(e.what()).find(where[i]), std::string::npos) << e.what();
    }
  }
  EXPECT_EQ(esf::host::live_lists(), before);
}

}  // namespace
