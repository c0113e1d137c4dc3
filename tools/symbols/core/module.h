// A module's file, asked for the source of its addresses.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace symbols {

/// A function at an address, or one that it is inlined into. What is not known is empty, or 0.
struct FRAME {
  std::string function;  ///< demangled
  std::string file;
  std::uint32_t line = 0;
};

/// What is read of a file.
enum class DEPTH {
  everything,
  symbol_table,  ///< the debug information is left alone
};

/// An executable or a shared object. Used by one thread at a time. What it reads is the file that
/// was opened, but it trusts it no less than a debugger does: a damaged one may end the process or
/// take for ever, so whoever reads strangers' files does so in a process that may.
class MODULE {
 public:
  /// The path names the file, which is read through the descriptor, and leads to files beside it.
  /// The descriptor stays the caller's. Null for what is no ELF file of this machine.
  static std::unique_ptr<MODULE> open(int descriptor, const std::string& path,
                                      DEPTH depth = DEPTH::everything);

  ~MODULE();
  MODULE(const MODULE&) = delete;
  MODULE& operator=(const MODULE&) = delete;

  /// The frames at an address as the file counts it, innermost first; one at least. An address that
  /// comes from a return address is to be made one less before.
  std::vector<FRAME> look_up(std::uint64_t address);

 private:
  class PARTS;
  explicit MODULE(std::unique_ptr<PARTS> parts);

  std::unique_ptr<PARTS> m_parts;
};

}  // namespace symbols
