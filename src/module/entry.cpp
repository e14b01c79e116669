// The image's way in: the records the host reads after loading, the start
// routine mcn_main, the entry qorfmsm that hands out the method table, and
// the revision record qkvercn1.
#include <cstring>

#include "module/families.h"
#include "module/host_api.h"
#include "module/method_frame.h"
#include "module/qorfmsm.h"  // its C declarations are checked against the module's
#include "module/win_model.h"

// The release, given by the build (the project's version in CMakeLists.txt).
#if !defined(ESF_VERSION) || !defined(ESF_VERSION_SHORT)
#error "ESF_VERSION and ESF_VERSION_SHORT come from the build"
#endif

namespace {

// Release texts of this image.
constexpr char kCopyright[] = "Exponential smoothing forecasting module. Copyright the authors.";

constexpr int kNumMethods = esf::kNumMethods;

// Flag word of a pool block that holds pointers.
constexpr int kPointerBlock = 0x2004;

const QKS_Version_Info kRevision = {
    __DATE__,                                                // portdate
    "",                                                      // track_lookthrough
    "",                                                      // track_additional
    0,                                                       // build_epoch
    "esforecast",                                            // product_name
    "",                                                      // script_name
    "",                                                      // script_dvd
    "",                                                      // script_loc
    "M0",                                                    // maintenance
    ESF_VERSION,                                             // version
    "Linux",                                                 // os_version
    "",                                                      // hotfix
    "",                                                      // hotfix_Install
    "Exponential smoothing methods and calendar intervals",  // description
    "",                                                      // description_Install
    "stand-alone host",                                      // environment
    __TIME__,                                                // build_time
    0,                                                       // prodid
    {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr},
};

}  // namespace

extern "C" {

// The link to the host, written once by mcn_main.
GCB** v_global_gcb_anchor = nullptr;
VI_PIDB* v_global_pidb_anchor = nullptr;
QKHANDLE* Exported_QKHandle = nullptr;

WIPGMCON pcn_QORFMSM = {
    -65536,                                    // stacksize
    1024,                                      // isa
    1024,                                      // osa
    {'q', 'o', 'r', 'f', 'm', 's', 'm', ' '},  // name, blank padded to eight
    0,                                         // flags
    qorfmsm,                                   // ep
    4,                                         // imgtype
    1,                                         // support
    881,                                       // prodid
    15,                                        // cntlc
};

WIPGMCON* mcn_pcns[2] = {&pcn_QORFMSM, nullptr};

VIMODCON vi_mcn = {
    "QOR_Image_Information=",    // tag, zero padded to 24
    0xB0BDEBEDul,                // modconmagic
    8,                           // compat_flags
    ESF_VERSION_SHORT,           // portver
    ESF_VERSION " stand-alone",  // portverl
    __DATE__ " " __TIME__,       // builddate
    mcn_pcns,                    // pgmcons
    const_cast<char*>(kCopyright),
    "001",  // releasenum
};

// The platform hook of the start routine; nothing to do on this platform.
void himodcn(void) {}

VIMODCON* mcn_main(ptr* gcbanchor, ptr pidb) {
  v_global_gcb_anchor = reinterpret_cast<GCB**>(gcbanchor);
  v_global_pidb_anchor = static_cast<VI_PIDB*>(pidb);
  himodcn();
  GCB* gcb = v_global_gcb_anchor != nullptr ? *v_global_gcb_anchor : nullptr;
  Exported_QKHandle = gcb != nullptr ? gcb->qkhandle : nullptr;
  return &vi_mcn;
}

int qorfmsm(int argc, char** argv) {
  if (argc == 0 || argv == nullptr) return 0;
  auto* cmeth = reinterpret_cast<CMETHS*>(argv[0]);
  auto* status = reinterpret_cast<int*>(argv[1]);

  GCB* gcb = v_global_gcb_anchor != nullptr ? *v_global_gcb_anchor : nullptr;
  VMPOOL* pool = gcb != nullptr ? gcb->curpool : nullptr;
  if (pool == nullptr) return 1;
  auto* block = static_cast<ptr*>(pool->alloc(pool, kNumMethods * static_cast<long>(sizeof(ptr)), kPointerBlock));
  if (block == nullptr) return 1;

  ptr local[kNumMethods];
  // Slot i holds the method the family table names for it.
  for (int i = 0; i < kNumMethods; ++i) {
    local[i] = reinterpret_cast<ptr>(esf::method_named(esf::method_name(i)));
  }

  const long task = gcb->task != nullptr ? gcb->task->tkword : 0;
  const int rc = virv2g(local, block, kNumMethods, task, v_global_pidb_anchor);
  if (rc == 0) {
    if (status != nullptr) *status = 0;
    if (cmeth != nullptr) {
      cmeth->nmethods = kNumMethods;
      cmeth->entpnts = reinterpret_cast<METHODFN*>(block);
    }
    return 0;
  }
  // The block stays with the pool; the table is left as it was.
  if (status != nullptr) *status = rc;
  return 1;
}

int esf_fit_ended(int slot, PSCPLIST* plist, List self, FITEND* end) { return esf::fit_ended(slot, plist, self, end); }

void qkvercn1(QKS_Version_Info* verinfo) {
  if (verinfo != nullptr) *verinfo = kRevision;
}

}  // extern "C"
