#include "mem/symbolizer/symbolizer_factory.h"

#include <string_view>

#include "mem/symbolizer/answers_ahead.h"
#include "mem/symbolizer/symbol_client.h"
#include "mem/symbolizer/symbolizer_addr2line.h"
#include "mem/symbolizer/symbolizer_addr2line_inlining.h"
#include "mem/symbolizer/symbolizer_server.h"
#include "platform/thr_process.h"

namespace {

template <class SYMBOLIZER>
MEM_SYMBOLIZER* instance_of() {
  return SYMBOLIZER::get_instance();
}

struct SYMBOLIZER_ROW {
  std::string_view name;
  MEM_SYMBOLIZER* (*get_instance)();
};

constexpr SYMBOLIZER_ROW symbolizers[] = {
    {"default", instance_of<MEM_SYMBOLIZER_ADDR2LINE_INLINING>},
    {"addr2line", instance_of<MEM_SYMBOLIZER_ADDR2LINE>},
    {"addr2line_inlining", instance_of<MEM_SYMBOLIZER_ADDR2LINE_INLINING>},
    {"server", instance_of<MEM_SYMBOLIZER_SERVER>},
};

}  // namespace

MEM_SYMBOLIZER* MEM_SYMBOLIZER_FACTORY::get_symbolizer(char const* name) {
  if (name == nullptr) return get_default_symbolizer();
  for (const SYMBOLIZER_ROW& row : symbolizers)
    if (row.name == name) return row.get_instance();
  return nullptr;
}

MEM_SYMBOLIZER* MEM_SYMBOLIZER_FACTORY::get_default_symbolizer() {
  return get_symbolizer("default");
}

void MEM_SYMBOLIZER_FACTORY::abandon_all_tools() {
  MEM_SYMBOLIZER_ADDR2LINE::IMPL::CACHE::singleton_instance.abandon();
  MEM_SYMBOLIZER_ADDR2LINE_INLINING::IMPL::CACHE::singleton_instance.abandon();
  MEM_SYMBOL_CLIENT::singleton_instance.abandon();
  MEM_ANSWERS_AHEAD::singleton_instance.abandon();
  thr_process_let_go_in_child();
}

void MEM_SYMBOLIZER_FACTORY::end_all_tools() {
  MEM_SYMBOLIZER_ADDR2LINE::IMPL::CACHE::singleton_instance.clear();
  MEM_SYMBOLIZER_ADDR2LINE_INLINING::IMPL::CACHE::singleton_instance.clear();
  MEM_SYMBOL_CLIENT::singleton_instance.clear();
}
