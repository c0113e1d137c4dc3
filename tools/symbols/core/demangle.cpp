#include "tools/symbols/core/demangle.h"

#include <libiberty/demangle.h>

#include <cstdlib>
#include <cstring>
#include <memory>

namespace symbols {

namespace {

// What an assembler put in front is no part of a language's name, nor is a version.
std::size_t length_of_prefix(char const* symbol) { return std::strspn(symbol, ".$"); }

}  // namespace

std::string demangled(char const* symbol) {
  const std::size_t prefix = length_of_prefix(symbol);
  const std::string name(symbol + prefix);
  const std::size_t version = name.find('@');
  const std::unique_ptr<char, decltype(&std::free)> plain(
      cplus_demangle(name.substr(0, version).c_str(), DMGL_PARAMS | DMGL_ANSI), &std::free);
  if (!plain) return symbol;
  return std::string(symbol, prefix) + plain.get() +
         (version == std::string::npos ? "" : name.substr(version));
}

}  // namespace symbols
