#include "mem/settings/call_path_settings.h"

#include <utility>

#include "mem/base/error_line.h"
#include "mem/host/settings.h"

namespace {

constexpr const MEM_SETTINGS_ROW& depth_row = mem_settings_row("mem_call_path_depth");
constexpr const MEM_SETTINGS_ROW& limit_row = mem_settings_row("mem_call_paths_limit");

void read_depth() {
  std::uint64_t depth = mem_setting_unsigned(depth_row);
  if (depth > mem_most_call_path_depth) {
    mem_say_error_line(
        "MEM: mem_call_path_depth is \"%llu\", which is not a decimal number from 1 to %d: %d "
        "holds",
        static_cast<unsigned long long>(depth), mem_most_call_path_depth, mem_most_call_path_depth);
    depth = mem_most_call_path_depth;
  }
  mem_call_path_depth = static_cast<int>(depth);
}

}  // namespace

constinit int mem_call_path_depth = mem_default_number(depth_row);
constinit std::uint64_t mem_call_paths_limit = mem_default_number(limit_row);
constinit bool mem_call_paths_per_bin = false;

void mem_read_call_path_settings() {
  static constinit bool were_read = false;
  if (std::exchange(were_read, true)) return;
  read_depth();
  mem_call_paths_limit = mem_setting_unsigned(limit_row);
  mem_call_paths_per_bin = mem_setting_is_on("mem_call_paths_per_bin");
}
