// Loading the module image the way the host does: dlopen() the shared
// object, run its start routine with the host's control block, read its
// image records and ask its entry for the table of twelve methods.
#pragma once

#include <dlfcn.h>

#include <array>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

#include "host/host.h"
#include "module/families.h"
#include "module/host_api.h"
#include "module/qorfmsm.h"

namespace esf::runner {

// Why the module could not be loaded or called; what() says which step.
class LoadError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Loader {
 public:
  // The method table's size; the names of its slots are the family table's
  // (module/families.h).
  static constexpr int kNumMethods = esf::kNumMethods;

  Loader() = default;
  Loader(const Loader&) = delete;
  Loader& operator=(const Loader&) = delete;
  ~Loader();

  // The image the loader would open: $ESF_MODULE when set, else
  // libqorfmsm.so beside the running executable.
  static std::filesystem::path default_path();

  // Loads the image (once; later calls do nothing).  Throws LoadError.
  void load(const std::filesystem::path& path);
  // Loads the default image, when none is loaded yet (without looking for
  // the file otherwise).
  void load();
  bool loaded() const { return handle_ != nullptr; }
  const std::filesystem::path& path() const { return path_; }

  // The image's records, valid after load().
  const VIMODCON& image_info() const;
  const WIPGMCON& program_info() const;

  // The method in slot `slot` (0..11).
  METHODFN method(int slot) const;
  // The exported name of the routine the module placed in slot `slot`, as
  // the dynamic linker knows it; empty when it cannot tell.
  std::string slot_symbol(int slot) const;
  // Slot of a method name, -1 if none.
  static int slot_of(std::string_view name);
  // Calls a method with the parameter record of `call`; returns the
  // function's result (always 0 for this module).  Loads first if needed.
  int call(int slot, host::MethodCall& call, List self = nullptr);

  // The image's routines that every series calls, found once when the image
  // is loaded; null where the image does not export one.
  struct Routines {
    int (*zintstr)(tchar*, int, INTERVAL*) = nullptr;
    double (*zintnx2)(INTERVAL*, double, double) = nullptr;
    double (*zintck2)(INTERVAL*, double, double) = nullptr;
    double (*zintnx3)(INTERVAL*, double, double, tchar*, INTERVAL*) = nullptr;
    int (*zintfit)(double, double, char*, INTERVAL*, INTINFO*) = nullptr;
    int (*zintsea)(INTERVAL*, double, INTERVAL*, int*) = nullptr;
    int (*fit_ended)(int, PSCPLIST*, List, FITEND*) = nullptr;
  };
  // Loads first if needed.
  const Routines& routines() {
    if (!loaded()) load();
    return routines_;
  }
  // A routine of routines(); throws LoadError naming it when the image does
  // not export it.
  template <class F>
  static F* required(F* routine, const char* name) {
    if (routine == nullptr) throw LoadError(std::string("the module does not export ") + name);
    return routine;
  }

  // An exported routine of the image by name.  Loads first if needed;
  // throws LoadError when the image does not export it.
  template <class F>
  F* symbol(const char* name) {
    if (!loaded()) load();
    void* p = ::dlsym(handle_, name);
    if (p == nullptr) throw LoadError(std::string("the module does not export ") + name);
    return reinterpret_cast<F*>(p);
  }

 private:
  void* handle_ = nullptr;
  std::filesystem::path path_;
  VIMODCON* vi_ = nullptr;
  WIPGMCON* pcn_ = nullptr;
  CMETHS cmeths_{};
  Routines routines_;
  std::array<std::string, kNumMethods> upper_names_;  // the method names as calls pass them
};

}  // namespace esf::runner
