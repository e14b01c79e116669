#include "runner/loader.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <system_error>
#include <type_traits>

#include <fmt/format.h>

namespace esf::runner {

Loader::~Loader() {
  // The image stays mapped: method tables and lists may still point into it
  // while the process ends, and unloading buys nothing here.
}

std::filesystem::path Loader::default_path() {
  if (const char* env = std::getenv("ESF_MODULE"); env != nullptr && *env != '\0') return env;
  std::error_code ec;
  const std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec) return "libqorfmsm.so";
  return exe.parent_path() / "libqorfmsm.so";
}

void Loader::load() {
  if (handle_ == nullptr) load(default_path());
}

void Loader::load(const std::filesystem::path& path) {
  if (handle_ != nullptr) return;
  void* handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    const char* why = ::dlerror();
    throw LoadError(fmt::format("cannot load the module image {}: {}", path.string(), why ? why : "unknown error"));
  }
  using McnMain = VIMODCON*(ptr*, ptr);
  auto* mcn_main_fn = reinterpret_cast<McnMain*>(::dlsym(handle, "mcn_main"));
  auto* vi = static_cast<VIMODCON*>(::dlsym(handle, "vi_mcn"));
  auto* pcn = static_cast<WIPGMCON*>(::dlsym(handle, "pcn_QORFMSM"));
  if (mcn_main_fn == nullptr || vi == nullptr || pcn == nullptr) {
    ::dlclose(handle);
    throw LoadError(fmt::format("{} is not a module image: mcn_main, vi_mcn or pcn_QORFMSM is missing", path.string()));
  }
  host::pidb()->handle = handle;
  VIMODCON* answered = mcn_main_fn(reinterpret_cast<ptr*>(host::gcb_anchor()), host::pidb());
  if (answered != vi || vi->modconmagic != 0xB0BDEBEDul ||
      std::strncmp(vi->tag, "QOR_Image_Information=", sizeof vi->tag) != 0) {
    ::dlclose(handle);
    throw LoadError(fmt::format("{}: the image information record is not recognised", path.string()));
  }
  if (pcn->ep == nullptr) {
    ::dlclose(handle);
    throw LoadError(fmt::format("{}: the program record has no entry", path.string()));
  }
  CMETHS cmeths{};
  int status = -1;
  char* argv[2] = {reinterpret_cast<char*>(&cmeths), reinterpret_cast<char*>(&status)};
  const int rc = pcn->ep(2, argv);
  if (rc != 0 || status != 0 || cmeths.nmethods != kNumMethods || cmeths.entpnts == nullptr) {
    ::dlclose(handle);
    throw LoadError(fmt::format("{}: the entry gave no method table (result {}, status {}, {} methods)", path.string(),
                                rc, status, cmeths.nmethods));
  }
  handle_ = handle;
  path_ = path;
  vi_ = vi;
  pcn_ = pcn;
  cmeths_ = cmeths;
  auto find = [&](auto& routine, const char* name) {
    routine = reinterpret_cast<std::remove_reference_t<decltype(routine)>>(::dlsym(handle, name));
  };
  find(routines_.zintstr, "zintstr");
  find(routines_.zintnx2, "zintnx2");
  find(routines_.zintck2, "zintck2");
  find(routines_.zintnx3, "zintnx3");
  find(routines_.zintfit, "zintfit");
  find(routines_.zintsea, "zintsea");
  find(routines_.fit_ended, "esf_fit_ended");
  for (int slot = 0; slot < kNumMethods; ++slot) {
    std::string& upper = upper_names_[static_cast<std::size_t>(slot)];
    upper = esf::method_name(slot);
    for (char& c : upper) c = static_cast<char>(c - ('a' <= c && c <= 'z' ? 'a' - 'A' : 0));
  }
}

const VIMODCON& Loader::image_info() const {
  if (vi_ == nullptr) throw LoadError("the module image is not loaded");
  return *vi_;
}

const WIPGMCON& Loader::program_info() const {
  if (pcn_ == nullptr) throw LoadError("the module image is not loaded");
  return *pcn_;
}

METHODFN Loader::method(int slot) const {
  if (!loaded()) throw LoadError("the module image is not loaded");
  if (slot < 0 || slot >= cmeths_.nmethods) throw LoadError(fmt::format("no method in slot {}", slot));
  return cmeths_.entpnts[slot];
}

std::string Loader::slot_symbol(int slot) const {
  Dl_info info{};
  if (::dladdr(reinterpret_cast<void*>(method(slot)), &info) == 0 || info.dli_sname == nullptr) return {};
  return info.dli_sname;
}

int Loader::slot_of(std::string_view name) { return esf::method_slot(name); }

int Loader::call(int slot, host::MethodCall& call, List self) {
  if (!loaded()) load();
  METHODFN fn = method(slot);
  std::string& upper = upper_names_[static_cast<std::size_t>(slot)];
  return fn(call.plist(), self, reinterpret_cast<unsigned char*>(upper.data()), static_cast<int>(upper.size()));
}

}  // namespace esf::runner
