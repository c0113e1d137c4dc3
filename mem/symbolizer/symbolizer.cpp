#include "mem/symbolizer/symbolizer.h"

bool MEM_SYMBOLIZER::get_source_and_function_info(void const* address, MEM_ADDRESS_INFO& info,
                                                  std::vector<MEM_ADDRESS_INFO>& inlined) {
  inlined.clear();
  return get_source_and_function_info(address, info);
}

MEM_SYMBOL_ANSWER MEM_SYMBOLIZER::ask(void const* address, MEM_ADDRESS_INFO& info,
                                      std::vector<MEM_ADDRESS_INFO>& inlined) {
  return get_source_and_function_info(address, info, inlined) ? MEM_SYMBOL_ANSWER::for_good
                                                              : MEM_SYMBOL_ANSWER::no_module;
}

MEM_SYMBOL_ANSWER MEM_SYMBOLIZER::ask_looking_ahead(void const* address, MEM_ADDRESS_INFO& info,
                                                    std::vector<MEM_ADDRESS_INFO>& inlined,
                                                    std::span<void const* const>) {
  return ask(address, info, inlined);
}
