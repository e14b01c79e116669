// The host's named lists, method arguments and the JSON form of lists.
#include <bit>
#include <cstdint>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "host/host.h"

namespace {

using esf::host::MethodCall;

bool is_missing(double v) { return (std::bit_cast<std::uint64_t>(v) >> 48) == 0xFFFF; }
double missing_kind(char letter) {  // ".A" to ".Z"
  return std::bit_cast<double>((std::uint64_t{0xFFFF} << 48) | (std::uint64_t(0xFD - (letter - 'A')) << 40));
}

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

TEST(HostLists, GetByNameAnswersByKind) {
  ListGuard g(sample_list());
  struct Case {
    const char* name;
    int want_d, want_i, want_c, want_l;  // 0 = found, non-zero = refused
    double value;                        // numeric value when found
  };
  const Case cases[] = {
      {"NUM", 0, 0, 1, 1, 2.5},    // a double reads as double and long
      {"int", 0, 0, 1, 1, 7.0},    // names are case-insensitive
      {"TEXT", 1, 1, 0, 1, 0.0},   // characters are not numbers
      {"SUB", 1, 1, 1, 0, 0.0},    // a sublist is only a list
      {"SHORT", 0, 0, 1, 1, 3.0},  // a short is numeric
      {"NONE", 1, 1, 1, 1, 0.0},   // absent
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const int len = static_cast<int>(std::strlen(c.name));
    double d = -1;
    long i = -1;
    tchar* s = nullptr;
    int n = -1;
    ListId id = 0;
    EXPECT_EQ(slgnd(g.list, c.name, len, 1, 1, &d, nullptr) != 0, c.want_d != 0);
    EXPECT_EQ(slgni(g.list, c.name, len, 1, 1, &i, nullptr) != 0, c.want_i != 0);
    EXPECT_EQ(slgnc(g.list, c.name, len, 1, 1, &s, &n, nullptr, 0) != 0, c.want_c != 0);
    EXPECT_EQ(slgnl(g.list, c.name, len, 1, 1, &id, nullptr) != 0, c.want_l != 0);
    if (c.want_d == 0) {
      EXPECT_EQ(d, c.value);
    }
    if (c.want_i == 0) {
      EXPECT_EQ(i, static_cast<long>(c.value));
    }
    if (c.want_l == 0) {
      EXPECT_NE(slistp(id, esf::host::fmcomp()), nullptr);
    }
  }
  tchar* s = nullptr;
  int n = 0;
  ASSERT_EQ(slgnc(g.list, "TEXT", 4, 1, 1, &s, &n, nullptr, 0), 0);
  EXPECT_EQ(std::string(s, static_cast<size_t>(n)), "abc  ");  // kept as stored, blanks and all
}

TEST(HostLists, DefaultsOfAbsentItems) {
  ListGuard g(esf::host::new_list());
  double d = 0;
  const double dflt = 4.25;
  // A numeric default is stored, yet the answer still says "absent".
  EXPECT_NE(slgnd(g.list, "X", 1, 1, 1, &d, &dflt), 0);
  EXPECT_EQ(d, 4.25);
  // A character default is an answer: the caller goes on.
  tchar* s = nullptr;
  int n = 0;
  EXPECT_EQ(slgnc(g.list, "NAME", 4, 1, 1, &s, &n, "NONE", 4), 0);
  EXPECT_EQ(std::string(s, static_cast<size_t>(n)), "NONE");
  // Without a default an absent item stops the caller.
  EXPECT_NE(slgnc(g.list, "NAME", 4, 1, 1, &s, &n, nullptr, 0), 0);
}

TEST(HostLists, StoringPastTheEndExtendsWithEmptyItems) {
  ListGuard g(esf::host::new_list());
  ASSERT_EQ(slsetd(g.list, 3, 1.5, 1), 0);
  ASSERT_EQ(g.list->length, 3);
  const auto items = esf::host::items(g.list);
  EXPECT_EQ(items[0]->type, SL_EMPTY);
  EXPECT_TRUE(is_missing(slgetnv(items[0], 0)));  // an empty item has no number
  EXPECT_EQ(slgetnv(items[2], 0), 1.5);
  // Storing over an item replaces its kind.
  ASSERT_EQ(slsetc(g.list, 3, "LEVEL", 5, 1), 0);
  tchar* s = nullptr;
  int n = 0;
  ASSERT_EQ(slitmc(g.list, 3, &s, &n), 0);
  EXPECT_EQ(std::string(s, static_cast<size_t>(n)), "LEVEL");
  EXPECT_NE(slitmc(g.list, 1, &s, &n), 0);  // an empty item is not a string
  EXPECT_NE(slsetd(g.list, 0, 1.0, 1), 0);  // indexes start at 1
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

TEST(HostLists, SetByNameReplacesTheFirstAndAppendsOtherwise) {
  ListGuard g(esf::host::new_list());
  ASSERT_EQ(slsnd(g.list, 1.0, "EVAL_VARIANCE", 13, 1, 1), 0);
  ASSERT_EQ(slsnd(g.list, 2.0, "EVAL_VARIANCE", 13, 1, 1), 0);
  ASSERT_EQ(slsni(g.list, 3, "NPARMS", 6, 1, 1), 0);
  EXPECT_EQ(g.list->length, 2);
  EXPECT_EQ(esf::host::find_number(g.list, "EVAL_VARIANCE"), 2.0);
  EXPECT_EQ(esf::host::find_item(g.list, "NPARMS")->type, SL_INTEGER);
  // Inserting a named double always appends; lookups then see the first.
  ASSERT_EQ(slinsd(g.list, 9.0, -1, "EVAL_VARIANCE", 13), 0);
  EXPECT_EQ(esf::host::find_number(g.list, "EVAL_VARIANCE"), 2.0);
  EXPECT_EQ(slsrchn(g.list, "EVAL_VARIANCE", 13, 2, 1), 3);
}

// ---- Method arguments --------------------------------------------------------

TEST(HostArguments, PosargsReadsEachKind) {
  ListGuard a(esf::host::new_list());
  MethodCall call;
  call.list(a.list).text("WORK.OUT").number(0.05).missing_number().number(7);
  List list = nullptr;
  tchar* name = nullptr;
  int name_l = 0;
  double cl = -1;
  char cl_missing = -1;
  int lead = 12;
  char lead_missing = -1;
  int rc = 0;
  char rc_missing = -1;
  int nargs = 0;
  ASSERT_EQ(posargs(call.plist(), nullptr, 5, 5, &nargs, POS_LIST, &list, POS_CHAR, &name, &name_l, POS_DOUBLE, &cl,
                    &cl_missing, POS_INT, &lead, &lead_missing, POS_INT, &rc, &rc_missing),
            0);
  EXPECT_EQ(nargs, 5);
  EXPECT_EQ(list, a.list);
  EXPECT_EQ(std::string(name, static_cast<size_t>(name_l)), "WORK.OUT");
  EXPECT_EQ(cl, 0.05);
  EXPECT_EQ(cl_missing, 0);
  EXPECT_EQ(lead_missing, 1);  // a missing number is flagged ...
  EXPECT_EQ(lead, 12);         // ... and leaves the caller's value
  EXPECT_EQ(rc, 7);
  EXPECT_EQ(rc_missing, 0);
}

TEST(HostArguments, PosretdWritesTheArgumentBeforeTheSlot) {
  MethodCall call;
  call.number(1).number(2).number(0);
  // Slot s is argument s - 1: the return code of a three-argument call is slot 4.
  ASSERT_EQ(posretd(call.plist(), 4, 999.0, 0), 0);
  EXPECT_EQ(call.return_code(), 999);
  EXPECT_EQ(call.written(4), 999.0);
  EXPECT_FALSE(call.written(3).has_value());
  // A slot beyond the passed arguments still lands, so a caller can read it.
  ASSERT_EQ(posretd(call.plist(), 8, 12.0, 0), 0);
  EXPECT_EQ(call.written(8), 12.0);
  EXPECT_NE(posretd(call.plist(), 1, 0.0, 0), 0);
  EXPECT_NE(posretd(call.plist(), PSCP_MAXARGS + 2, 0.0, 0), 0);
}

// ---- JSON ----------------------------------------------------------------------

TEST(HostJson, RoundTripKeepsKindsOrderNamesAndMissingValues) {
  ListGuard g(esf::host::new_list());
  List l = g.list;
  esf::host::append_number(l, 1.0 / 3.0, "THIRD");
  esf::host::append_number(l, std::bit_cast<double>(std::uint64_t{0xFFFFFE0000000000}), "DOT");
  esf::host::append_number(l, missing_kind('M'), "DOTM");
  esf::host::append_integer(l, -4, "COUNT");
  esf::host::append_text(l, "x\"y", "QUOTE");
  List dup = esf::host::add_list(l, "DUP");  // duplicate names and an unnamed item
  esf::host::append_number(dup, 1, "A");
  esf::host::append_number(dup, 2, "A");
  esf::host::append_number(dup, 3);
  List arr = esf::host::add_list(l, "DATA");
  for (double v : {112.0, 118.5, 1e300}) esf::host::append_number(arr, v);
  esf::host::add_list(l, "EMPTY");

  const nlohmann::ordered_json json = esf::host::to_json(l);
  EXPECT_TRUE(json["DOT"].is_null());  // the ordinary missing value is null
  ListGuard back(esf::host::from_json(nlohmann::ordered_json::parse(json.dump())));
  EXPECT_EQ(esf::host::to_json(back.list), json);

  // Kinds, bits and the special missing kinds survive.
  const auto items = esf::host::items(back.list);
  ASSERT_EQ(items.size(), 8u);
  EXPECT_EQ(std::bit_cast<std::uint64_t>(items[0]->data.d), std::bit_cast<std::uint64_t>(1.0 / 3.0));
  EXPECT_EQ(std::bit_cast<std::uint64_t>(items[1]->data.d), 0xFFFFFE0000000000u);
  EXPECT_EQ(std::bit_cast<std::uint64_t>(items[2]->data.d), std::bit_cast<std::uint64_t>(missing_kind('M')));
  EXPECT_EQ(items[3]->type, SL_INTEGER);
  EXPECT_EQ(esf::host::find_text(back.list, "QUOTE"), "x\"y");
  List dup_back = esf::host::find_list(back.list, "DUP");
  ASSERT_NE(dup_back, nullptr);
  EXPECT_EQ(dup_back->length, 3);
  EXPECT_EQ(slsrchn(dup_back, "A", 1, 2, 1), 2);
}

TEST(HostJson, ShapesFollowTheNaming) {
  ListGuard g(esf::host::new_list());
  List arr = esf::host::add_list(g.list, "ARR");
  esf::host::append_number(arr, 1.5);
  List mixed = esf::host::add_list(g.list, "MIXED");
  esf::host::append_number(mixed, 1.0, "A");
  esf::host::append_number(mixed, 2.0);
  const nlohmann::ordered_json json = esf::host::to_json(g.list);
  EXPECT_TRUE(json["ARR"].is_array());
  EXPECT_TRUE(json["MIXED"].contains("$items"));
  EXPECT_EQ(json["MIXED"]["$items"][1]["name"], nullptr);
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
