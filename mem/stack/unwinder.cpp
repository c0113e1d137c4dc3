#include "mem/stack/unwinder.h"

#include <string>
#include <string_view>

#include "mem/base/check.h"
#include "mem/host/message.h"
#include "mem/host/settings.h"
#include "mem/settings/tuning.h"

constinit ERR_UNWINDER* mem_tbb_unwinder = nullptr;

namespace {

constexpr char const* default_unwinder =
    mem_settings_row("KORVANE_MEM_PROFILE_UNWINDER").default_value;

void report_tester_difference(int first_count, int second_count, int differs_at) {
  mem_tracker_debug("unwinders differ: %d and %d frames, first difference at frame %d", first_count,
                    second_count, differs_at);
}

std::string wanted_name() {
  const std::string wanted = mem_setting_text("KORVANE_MEM_PROFILE_UNWINDER");
  return wanted.empty() || wanted == "default" ? default_unwinder : wanted;
}

// The cache of frame descriptions is for the walkers that profit from it: not for
// "eh_frame_internal", which remembers more than that.
void prepare_unwinder() {
  char const* unwinder_name = mem_tbb_unwinder->name();
  mem_check(unwinder_name != nullptr, "unwinder_name");
  const std::string_view name(unwinder_name);
  if (name == "backtrace" || name == "tester") ERR__Unwind_Find_FDE_CACHE::enable(true);
}

void select_unwinder(MEM_TRACKING_GRANULARITY) {
  ERR_UNWINDER_TESTER::set_report(report_tester_difference);
  mem_tbb_unwinder = ERR_UNWINDER::get_unwinder(wanted_name().c_str());
  mem_check(mem_tbb_unwinder != nullptr, "mem_tbb_unwinder");
  mem_read_ignore_depth_setting();
  prepare_unwinder();
}

}  // namespace

constinit const MEM_PART mem_unwinder_part(MEM_CREATE{select_unwinder},
                                           MEM_RESET{
                                               mem_nothing},       // it has no state of the tracker
                                           MEM_FREE{mem_nothing},  // threads may be walking
                                           MEM_ABANDON{mem_nothing},  // walks take no lock of ours
                                           MEM_FOLLOW{mem_nothing});  // the same one
