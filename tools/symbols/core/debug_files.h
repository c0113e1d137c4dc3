// A module's file and those that belong to it.
#pragma once

#include <elfutils/libdwfl.h>

#include <string>

namespace symbols {

/// Beside the module itself, its debug information may lie in a file that its debug link or its
/// build-id leads to, in the usual directories or in debuginfod's cache. The network is not asked.
class DEBUG_FILES {
 public:
  DEBUG_FILES(int descriptor, const std::string& path);
  ~DEBUG_FILES() { dwfl_end(m_dwfl); }
  DEBUG_FILES(const DEBUG_FILES&) = delete;
  DEBUG_FILES& operator=(const DEBUG_FILES&) = delete;

  /// Null when the file is no module.
  Dwfl_Module* module() const { return m_module; }
  /// Where the debug information is, its own or another file's; null for none. What is added to its
  /// addresses makes them the module's.
  Dwarf* debug_information(std::uint64_t& bias) const;

 private:
  Dwfl* m_dwfl;
  Dwfl_Module* m_module = nullptr;
};

}  // namespace symbols
