// A directory of a test's own, and files in the current one.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

/// The current directory from its construction on; removed with everything in it afterwards.
class TEMPORARY_DIRECTORY {
 public:
  TEMPORARY_DIRECTORY() {
    if (mkdtemp(path.data()) == nullptr) std::abort();
    std::filesystem::current_path(path);
  }
  TEMPORARY_DIRECTORY(const TEMPORARY_DIRECTORY&) = delete;
  TEMPORARY_DIRECTORY& operator=(const TEMPORARY_DIRECTORY&) = delete;
  ~TEMPORARY_DIRECTORY() { std::filesystem::remove_all(path); }

  std::string path = (std::filesystem::temp_directory_path() / "unit_XXXXXX").string();
};

inline void write_file(const std::string& name, const std::string& text) {
  std::ofstream(name) << text;
}

inline std::string content_of(const std::string& name) {
  std::ostringstream text;
  text << std::ifstream(name).rdbuf();
  return text.str();
}
