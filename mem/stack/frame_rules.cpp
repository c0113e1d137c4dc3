#include "mem/stack/frame_rules.h"

#include "mem/stack/frame_filters.h"
#include "mem/stack/user_filters.h"

namespace {

MEM_FRAME_FILTERS<MEM_USER_FILTERS> filters() {
  return {*mem_user_filters_modules, *mem_user_filters_functions, *mem_user_filters_files};
}

}  // namespace

bool mem_module_is_rejected(char const* module_name) {
  return filters().reject_module(module_name);
}

bool mem_frame_is_rejected(const MEM_ADDRESS_INFO& frame) {
  return filters().reject_frame(frame.function_name_buffer, frame.file_name_buffer);
}
