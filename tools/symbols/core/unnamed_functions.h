// Functions of which nothing tells a name.
#pragma once

#include <elfutils/libdwfl.h>

#include <cstdint>
#include <string>
#include <vector>

namespace symbols {

class SYMBOL_TABLE;

/// In a module that has been stripped of its symbols, a function is called after its place: the
/// file's name and where it begins there, as in "server+0x4c20". In one whose symbols tell of a
/// good part of its code they stay unknown: whoever looks at stacks learns more from their callers.
class UNNAMED_FUNCTIONS {
 public:
  UNNAMED_FUNCTIONS(Dwfl_Module* module, const std::string& path, const SYMBOL_TABLE& symbols);

  /// Empty where they stay unknown, and for an address that is no code.
  std::string name_at(std::uint64_t address) const;

 private:
  std::uint64_t beginning_of(std::uint64_t address) const;

  struct SECTION {
    std::uint64_t begin;
    std::uint64_t size;
  };
  std::string m_file;
  bool m_is_stripped = false;
  std::vector<SECTION> m_code;
  std::vector<std::uint64_t> m_beginnings;  // of functions; in order
};

}  // namespace symbols
