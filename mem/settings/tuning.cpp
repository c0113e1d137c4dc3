#include "mem/settings/tuning.h"

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string>

#include "include/tuk_mem.h"

constinit MEM_PERIOD mem_module_snapshot_delay(131072);
constinit std::uint64_t mem_fileline_peak_snapshot_threshold = 134217728;
constinit int MEM_STACK_TRACE_IGNORE_DEPTH = 5;
constinit bool mem_allow_no_fileline_info = false;

namespace {

// A number that the environment may give and the settings file may override.
struct NUMBER_ROW {
  std::uint64_t (*get)();
  void (*set)(std::uint64_t number);
  const char* variable;
  const char* setting;
};

constexpr NUMBER_ROW numbers[] = {
    {[] { return mem_module_snapshot_delay.events(); },
     [](std::uint64_t number) { mem_module_snapshot_delay = MEM_PERIOD(number); },
     "KORVANE_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD", "mem_profile_library_snapshot_period"},
    {[] { return mem_fileline_peak_snapshot_threshold; },
     [](std::uint64_t number) { mem_fileline_peak_snapshot_threshold = number; },
     "KORVANE_MEM_PROFILE_FILELINE_PEAK_SNAPSHOT_THRESHOLD",
     "mem_profile_fileline_peak_snapshot_threshold"},
};

// Both numbers divide signed ones: 0, and what a minus sign makes of stoull, can't be meant.
bool is_usable(std::uint64_t number) { return number > 0 && number <= INT64_MAX; }

void take_from_environment(const NUMBER_ROW& row) {
  const char* text = std::getenv(row.variable);
  if (text == nullptr) return;
  std::uint64_t number = 0;
  const auto parsed = std::from_chars(text, text + std::strlen(text), number);
  if (parsed.ec == std::errc() && is_usable(number)) row.set(number);
}

void take_from_settings(const NUMBER_ROW& row) {
  const std::string text = mem_cfg_get_value(row.setting);
  if (text.empty()) return;
  const std::uint64_t number = std::stoull(text);
  if (is_usable(number))
    row.set(number);
  else
    mem_msg_vdebug("setting \"%s\" refused: \"%s\" is out of range, %llu stays in force",
                   row.setting, text.c_str(), static_cast<unsigned long long>(row.get()));
}

struct PATTERN_ROW {
  const char* setting;
  int base;
  void (*set)(int pattern);
};

// The hexadecimal key of a pair comes last and wins.
constexpr PATTERN_ROW patterns[] = {
    {"mem_alloc_pattern", 10, mem_set_alloc_pattern},
    {"mem_alloc_pattern_hex", 16, mem_set_alloc_pattern},
    {"mem_free_pattern", 10, mem_set_free_pattern},
    {"mem_free_pattern_hex", 16, mem_set_free_pattern},
};

}  // namespace

void mem_read_snapshot_settings() {
  for (const NUMBER_ROW& row : numbers) {
    take_from_environment(row);
    take_from_settings(row);
  }
}

void mem_read_ignore_depth_setting() {
  const std::string text = mem_cfg_get_value("mem_profile_stack_trace_ignore_depth");
  if (text.empty()) return;
  const int depth = std::stoi(text);
  mem_msg_vdebug("Changing MEM_STACK_TRACE_IGNORE_DEPTH from default %d to %d",
                 MEM_STACK_TRACE_IGNORE_DEPTH, depth);
  MEM_STACK_TRACE_IGNORE_DEPTH = depth;
}

void mem_read_incomplete_fileline_setting() {
  if (mem_cfg_is_on("mem_profile_with_incomplete_fileline_info", false))
    mem_allow_no_fileline_info = true;
}

void mem_read_allocator_aid_settings() {
  for (const PATTERN_ROW& row : patterns) {
    const std::string text = mem_cfg_get_value(row.setting);
    if (!text.empty()) row.set(std::stoi(text, nullptr, row.base));
  }
  if (mem_cfg_is_on("mem_print_allocations", false))
    mem_set_print_allocations_callback_enabled(true);
}
