#include "mem/symbolizer/symbolizer.h"

bool MEM_SYMBOLIZER::get_source_and_function_info(void const* address, MEM_ADDRESS_INFO& info,
                                                  std::vector<MEM_ADDRESS_INFO>& inlined) {
  inlined.clear();
  return get_source_and_function_info(address, info);
}
