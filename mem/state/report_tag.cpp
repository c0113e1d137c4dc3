#include "mem/state/report_tag.h"

#include "include/tuk_mem.h"
#include "mem/base/check.h"
#include "mem/base/kept_text.h"
#include "mem/state/thread_flags.h"

constinit std::atomic<char const*> mem_tbb_exe_string = nullptr;

void mem_set_tbb_exe_string(char const* exe_string) {
  mem_check(exe_string != nullptr, "exe_string != nullptr");
  mem_check(mem_tbb_exe_string != nullptr, "mem_tbb_exe_string != nullptr");
  const MEM_THREAD_TRACKING_BLOCKED blocked;
  mem_tbb_exe_string = mem_keep_text(exe_string);
}

char const* mem_get_tbb_exe_string() {
  char const* const tag = mem_tbb_exe_string;
  return tag == nullptr ? "" : tag;
}

constinit const MEM_PART mem_report_tag_part(
    MEM_CREATE{[](MEM_TRACKING_GRANULARITY) { mem_tbb_exe_string = "kvi"; }},
    MEM_RESET{mem_nothing},  // no figure
    MEM_FREE{[] { mem_tbb_exe_string = ""; }},
    MEM_ABANDON{mem_nothing},  // the child goes on with the parent's
    MEM_FOLLOW{mem_nothing});
