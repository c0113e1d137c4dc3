#include "mem/settings/tuning.h"

#include "include/tuk_mem.h"
#include "mem/host/settings.h"

namespace {

constexpr const MEM_SETTINGS_ROW& period_row =
    mem_settings_row("mem_profile_library_snapshot_period");
constexpr const MEM_SETTINGS_ROW& threshold_row =
    mem_settings_row("mem_profile_fileline_peak_snapshot_threshold");
constexpr const MEM_SETTINGS_ROW& ignore_depth_row =
    mem_settings_row("mem_profile_stack_trace_ignore_depth");

}  // namespace

constinit MEM_PERIOD mem_module_snapshot_delay(mem_default_number(period_row));
constinit std::uint64_t mem_fileline_peak_snapshot_threshold = mem_default_number(threshold_row);
constinit int MEM_STACK_TRACE_IGNORE_DEPTH = mem_default_number(ignore_depth_row);
constinit bool mem_allow_no_fileline_info = false;

void mem_read_snapshot_settings() {
  mem_module_snapshot_delay = MEM_PERIOD(mem_setting_unsigned(period_row));
  mem_fileline_peak_snapshot_threshold = mem_setting_unsigned(threshold_row);
}

void mem_read_ignore_depth_setting() {
  const std::optional<int> depth = mem_setting_signed(ignore_depth_row);
  if (!depth) return;
  mem_msg_vdebug("Changing MEM_STACK_TRACE_IGNORE_DEPTH from default %d to %d",
                 MEM_STACK_TRACE_IGNORE_DEPTH, *depth);
  MEM_STACK_TRACE_IGNORE_DEPTH = *depth;
}

void mem_read_incomplete_fileline_setting() {
  if (mem_setting_is_on("mem_profile_with_incomplete_fileline_info"))
    mem_allow_no_fileline_info = true;
}

void mem_read_allocator_aid_settings() {
  if (const auto pattern = mem_setting_signed(mem_settings_row("mem_alloc_pattern")))
    mem_set_alloc_pattern(*pattern);
  if (const auto pattern = mem_setting_signed(mem_settings_row("mem_free_pattern")))
    mem_set_free_pattern(*pattern);
  if (mem_setting_is_on("mem_print_allocations")) mem_set_print_allocations_callback_enabled(true);
}
