#include "mem/symbolizer/symbolizer_factory.h"

#include <cstring>

#include "mem/symbolizer/symbolizer_addr2line.h"

MEM_SYMBOLIZER* MEM_SYMBOLIZER_FACTORY::get_symbolizer(char const* name) {
  if (name == nullptr || std::strcmp(name, "default") == 0) return get_default_symbolizer();
  if (std::strcmp(name, "addr2line") == 0) return MEM_SYMBOLIZER_ADDR2LINE::get_instance();
  return nullptr;
}

MEM_SYMBOLIZER* MEM_SYMBOLIZER_FACTORY::get_default_symbolizer() {
  return MEM_SYMBOLIZER_ADDR2LINE::get_instance();
}
