// The whole content of a file, for tests that check what a program wrote.
#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace support {

inline std::string slurp(const std::filesystem::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

}  // namespace support
