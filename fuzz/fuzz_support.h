// Shared setup of the fuzz targets: the module connected to the host once,
// a private scratch directory, and input bytes as text.
#pragma once

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "host/host.h"

namespace esf::fuzz {

// Connects the module to the host stand-in, once per process.
inline void connect_module() {
  static const bool connected = [] {
    mcn_main(reinterpret_cast<ptr*>(esf::host::gcb_anchor()), reinterpret_cast<ptr>(esf::host::pidb()));
    esf::host::capture_output(true);
    return true;
  }();
  (void)connected;
}

// A directory of this process's own, created once and removed at exit.
inline const std::filesystem::path& scratch_dir() {
  struct Dir {
    std::filesystem::path path;
    Dir() {
      path = std::filesystem::temp_directory_path() / ("esf_fuzz_" + std::to_string(::getpid()));
      std::filesystem::create_directories(path);
    }
    ~Dir() {
      std::error_code ec;
      std::filesystem::remove_all(path, ec);
    }
  };
  static const Dir dir;
  return dir.path;
}

inline std::string_view text_of(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

}  // namespace esf::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

// A property the target checks: when it fails, say which and abort, so that
// both the fuzzing engine and the replay program report the input.
#define ESF_FUZZ_CHECK(cond, ...)                                                   \
  do {                                                                              \
    if (!(cond)) {                                                                  \
      std::fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
      std::abort();                                                                 \
    }                                                                               \
  } while (0)
