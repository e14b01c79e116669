// The module image seen the way the host sees it: dlopen(), the start
// routine, the image records, the entry and its method table, and the
// calling convention of a method.
#include <dlfcn.h>

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/host.h"
#include "module/families.h"
#include "support/cli_run.h"

namespace {

using esf::method_name;

// The loaded image and its start routine run once, as a host does.
class Image : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    handle_ = ::dlopen(ESF_MODULE, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle_, nullptr) << ::dlerror();
    auto* mcn_main_fn = reinterpret_cast<VIMODCON* (*)(ptr*, ptr)>(::dlsym(handle_, "mcn_main"));
    ASSERT_NE(mcn_main_fn, nullptr);
    vi_ = static_cast<VIMODCON*>(::dlsym(handle_, "vi_mcn"));
    pcn_ = static_cast<WIPGMCON*>(::dlsym(handle_, "pcn_QORFMSM"));
    answered_ = mcn_main_fn(reinterpret_cast<ptr*>(esf::host::gcb_anchor()), esf::host::pidb());
  }

  template <class T>
  static T* sym(const char* name) {
    return reinterpret_cast<T*>(::dlsym(handle_, name));
  }

  // Calls the entry as the host does; returns its result.
  static int enter(int argc, CMETHS* cmeths, int* status) {
    char* argv[2] = {reinterpret_cast<char*>(cmeths), reinterpret_cast<char*>(status)};
    return pcn_->ep(argc, argv);
  }

  static void* handle_;
  static VIMODCON* vi_;
  static WIPGMCON* pcn_;
  static VIMODCON* answered_;
};

void* Image::handle_ = nullptr;
VIMODCON* Image::vi_ = nullptr;
WIPGMCON* Image::pcn_ = nullptr;
VIMODCON* Image::answered_ = nullptr;

TEST_F(Image, StartRoutineStoresTheAnchorsAndTheRecordsLinkTheProgram) {
  ASSERT_NE(vi_, nullptr);
  EXPECT_EQ(answered_, vi_);
  EXPECT_EQ(*sym<GCB**>("v_global_gcb_anchor"), esf::host::gcb_anchor());
  EXPECT_EQ(*sym<VI_PIDB*>("v_global_pidb_anchor"), esf::host::pidb());
  EXPECT_EQ(*sym<QKHANDLE*>("Exported_QKHandle"), esf::host::gcb()->qkhandle);
  // The host finds the program through the image record and checks its tag.
  EXPECT_EQ(std::memcmp(vi_->tag, "QOR_Image_Information=\0\0", 24), 0);
  EXPECT_NE(std::strlen(vi_->builddate), 0u);
  ASSERT_NE(vi_->pgmcons, nullptr);
  EXPECT_EQ(vi_->pgmcons[0], pcn_);
  EXPECT_EQ(vi_->pgmcons[1], nullptr);
  EXPECT_EQ(std::string(pcn_->name, 8), "qorfmsm ");
  EXPECT_EQ(reinterpret_cast<void*>(pcn_->ep), sym<void>("qorfmsm"));
  auto* qkvercn1_fn = sym<void(QKS_Version_Info*)>("qkvercn1");
  ASSERT_NE(qkvercn1_fn, nullptr);
  QKS_Version_Info info{};
  qkvercn1_fn(&info);
  ASSERT_NE(info.product_name, nullptr);
  EXPECT_STRNE(info.product_name, "");
  EXPECT_NE(info.version, nullptr);
}

TEST_F(Image, EntryHandsOutTwelveMethodsInTableOrder) {
  CMETHS cmeths{};
  int status = -1;
  ASSERT_EQ(enter(2, &cmeths, &status), 0);
  EXPECT_EQ(status, 0);
  ASSERT_EQ(cmeths.nmethods, esf::kNumMethods);
  for (int i = 0; i < esf::kNumMethods; ++i) {
    SCOPED_TRACE(method_name(i));
    EXPECT_EQ(reinterpret_cast<void*>(cmeths.entpnts[i]), sym<void>(method_name(i)));
  }
}

// An entry without arguments touches nothing; a failed one leaves no table,
// and only a conversion's code travels in the status word.
TEST_F(Image, FailuresLeaveNoTableAndOnlyAConversionSetsTheStatus) {
  struct Case {
    const char* what;
    int argc;
    int conversion;  // the status the host's conversion answers
    long grant;      // blocks the pool grants before it refuses, -1: all
    int rc, status;
  };
  for (const Case& c : {Case{"no arguments", 0, 0, -1, 0, -9}, Case{"conversion", 2, 0x55, -1, 1, 0x55},
                        Case{"allocation", 2, 0, 0, 1, -9}}) {
    SCOPED_TRACE(c.what);
    CMETHS cmeths{-7, reinterpret_cast<METHODFN*>(0x10)};
    int status = -9;
    esf::host::set_virv2g_status(c.conversion);
    esf::host::pool_fail_after(c.grant);
    const int rc = enter(c.argc, &cmeths, &status);
    esf::host::set_virv2g_status(0);
    esf::host::pool_fail_after(-1);
    EXPECT_EQ(rc, c.rc);
    EXPECT_EQ(status, c.status);
    EXPECT_EQ(cmeths.nmethods, -7);
    EXPECT_EQ(cmeths.entpnts, reinterpret_cast<METHODFN*>(0x10));
  }
  EXPECT_EQ(pcn_->ep(2, nullptr), 0);  // no argument vector: no call
}

TEST_F(Image, WrongArgumentCountLeaves999AndResultZero) {
  CMETHS cmeths{};
  int status = -1;
  ASSERT_EQ(enter(2, &cmeths, &status), 0);
  List lists[8];
  for (List& l : lists) l = esf::host::new_list();
  for (int slot = 0; slot < esf::kNumMethods; ++slot) {
    const bool fit = slot % 2 == 0;
    const int expected = fit ? 6 : 7;
    const int rc_slot = expected + 1;  // the return code's slot: argument count plus 1
    for (int passed : {expected - 1, expected + 1, 0}) {
      SCOPED_TRACE(std::string(method_name(slot)) + " with " + std::to_string(passed) + " arguments");
      esf::host::MethodCall call;
      for (int i = 0; i < passed; ++i) {
        if (i < 3) {
          call.list(lists[i]);
        } else {
          call.number(0);
        }
      }
      const int result = cmeths.entpnts[slot](call.plist(), nullptr, nullptr, 0);
      EXPECT_EQ(result, 0);
      EXPECT_EQ(call.written(rc_slot), 999.0);
    }
  }
  for (List l : lists) esf::host::free_list(l);
}

// The command line run with ESF_MODULE set to `image`, in a directory of its own.
support::CliOutcome run_with_image(const char* image, const std::vector<std::string>& args) {
  const support::ScratchDir dir("esf_entry");
  return support::run_cli(dir.path, args, "", "ESF_MODULE=" + support::quote(image));
}

TEST(HostProgram, VersionShowsTheImageAndTheMethodTableInOrder) {
  const support::CliOutcome r = run_with_image(ESF_MODULE, {"--version"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("release"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("built"), std::string::npos) << r.out;
  std::size_t at = 0;
  for (int slot = 0; slot < esf::kNumMethods; ++slot) {
    const char* name = method_name(slot);
    const std::size_t found = r.out.find(std::string(" ") + name, at);
    ASSERT_NE(found, std::string::npos) << name << " missing or out of order in\n" << r.out;
    at = found + 1;
  }
}

TEST(HostProgram, MissingImageIsAClearError) {
  const support::CliOutcome r = run_with_image("/nonexistent/libqorfmsm.so", {"--version"});
  EXPECT_NE(r.status, 0);
  EXPECT_NE(r.err.find("cannot load the module image /nonexistent/libqorfmsm.so"), std::string::npos) << r.err;
}

}  // namespace
