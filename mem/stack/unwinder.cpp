#include "mem/stack/unwinder.h"

#include <string_view>

#include "mem/base/check.h"
#include "mem/host/message.h"

constinit ERR_UNWINDER* mem_tbb_unwinder = nullptr;

namespace {

constexpr char const* default_unwinder = "eh_frame_internal";

void report_tester_difference(int first_count, int second_count, int differs_at) {
  mem_tracker_debug("unwinders differ: %d and %d frames, first difference at frame %d", first_count,
                    second_count, differs_at);
}

}  // namespace

void mem_select_unwinder(char const* name) {
  const std::string_view wanted(name);
  ERR_UNWINDER_TESTER::set_report(report_tester_difference);
  mem_tbb_unwinder =
      ERR_UNWINDER::get_unwinder(wanted.empty() || wanted == "default" ? default_unwinder : name);
  mem_check(mem_tbb_unwinder != nullptr, "mem_tbb_unwinder");
}

void mem_prepare_unwinder() {
  char const* unwinder_name = mem_tbb_unwinder->name();
  mem_check(unwinder_name != nullptr, "unwinder_name");
  const std::string_view name(unwinder_name);
  // Not for "eh_frame_internal", intentionally.
  if (name == "backtrace" || name == "tester") ERR__Unwind_Find_FDE_CACHE::enable(true);
}
