// The settings that start-up itself needs.
#include "include/tuk_mem.h"
#include "mem/base/critical_section.h"
#include "mem/base/lifecycle.h"
#include "mem/host/message.h"
#include "mem/host/settings.h"

namespace {

constinit bool mem_korvane_ini_file_initialized = false;

}  // namespace

void mem_read_korvane_ini_file() {
  const MEM_CRITICAL_SECTION_GUARD guard;
  if (mem_korvane_ini_file_initialized) return;
  mem_korvane_ini_file_initialized = true;
  static const MEM_ALLOCATOR_DEBUG_MSG_STATIC_DESTRUCTOR
      s_mem_allocator_debug_msg_static_destructor(mem_setting_is_on("debug_msg"), "");
  mem_pgo_debug = mem_setting_is_on("debug_msg");
}
