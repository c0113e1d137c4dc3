// Everything that can be set from outside, in one table. The code reads settings by their names in
// it, and the table of docs/settings.md is this one: a test compares them.
#pragma once

#include <cstdint>
#include <string_view>

#include "include/tuk_mem.h"

/// How a setting is looked up and what it may be.
enum class MEM_SETTING_TYPE : std::uint8_t {
  SWITCH,    ///< mem_env_is_on in the environment, mem_cfg_is_on with default off as a setting
  PRESENCE,  ///< on when the variable is set, also to nothing
  TEXT,      ///< mem_cfg_get_value as a setting
  UNSIGNED,  ///< a decimal number from 1 to INT64_MAX: lenient in the environment, else strict
  UNSIGNED_OR_NONE,  ///< the same, or 0 for none
  SIGNED,            ///< a strict decimal number in the range of int
  HEX,               ///< the same in hexadecimal
  INTEGER,           ///< mem_cfg_get_int_value
};

/// One name, of an environment variable or of a setting that the host's callbacks are asked for.
struct MEM_SETTING {
  enum SOURCE : std::uint8_t { NONE, ENVIRONMENT, SETTINGS_FILE };

  SOURCE source = NONE;
  MEM_SETTING_TYPE type = MEM_SETTING_TYPE::SWITCH;
  const char* name = "";
};

constexpr MEM_SETTING mem_env(const char* name, MEM_SETTING_TYPE type = MEM_SETTING_TYPE::SWITCH) {
  return {MEM_SETTING::ENVIRONMENT, type, name};
}
constexpr MEM_SETTING mem_ini(const char* name, MEM_SETTING_TYPE type = MEM_SETTING_TYPE::SWITCH) {
  return {MEM_SETTING::SETTINGS_FILE, type, name};
}

/// One thing that can be set, and the names by which it is, in the order in which they are asked.
/// Any switch of a row turns it on; of numbers and texts, the last one that is set holds.
struct MEM_SETTINGS_ROW {
  MEM_SETTING settings[3];
  const char* default_value;  ///< what holds when none is set; empty for off or nothing
  const char* effect;         ///< in the words of docs/settings.md
  MEM_TRACKING_GRANULARITY tracks = MEM_TRACK_NONE;     ///< what it turns on
  MEM_TRACKING_GRANULARITY unless_on = MEM_TRACK_NONE;  ///< not asked for beside this kind
};

/// Rows of tracking are asked for in this order.
inline constexpr MEM_SETTINGS_ROW mem_settings[] = {
    {{mem_ini("mem_only_profile_single_executable", MEM_SETTING_TYPE::TEXT)},
     "",
     "the only executable (base name) in which any tracking switch holds"},
    {{mem_env("KORVANE_MEM_PROFILE_ALL"), mem_ini("mem_profile_all")},
     "",
     "all kinds of tracking but the two-line leak summary and call paths",
     MEM_TRACK_ALL},
    {{mem_env("KORVANE_MEM_PROFILE_PER_BIN"), mem_ini("mem_profile_per_bin"),
      mem_ini("mem_track_user_memory")},
     "",
     "global statistics; what a bin tells when it is closed",
     MEM_TRACK_PER_BIN},
    {{mem_env("KORVANE_MEM_PROFILE_BIN_TAG_PLOT"), mem_ini("mem_profile_per_bin_detailed")},
     "",
     "figures per profile bin and tag, and their timeline",
     MEM_TRACK_PER_BIN_DETAILED},
    {{mem_env("KORVANE_MEM_PROFILE_PER_LIBRARY"), mem_ini("mem_profile_per_library")},
     "",
     "figures per module and their timeline",
     MEM_TRACK_PER_LIBRARY},
    {{mem_env("KORVANE_MEM_PROFILE_PER_FILELINE"), mem_ini("mem_profile_per_fileline")},
     "",
     "figures per line of code; the fileline, subsystem and base-address reports",
     MEM_TRACK_PER_FILELINE},
    {{mem_env("KORVANE_MEM_CHECK_LEAKS"), mem_ini("mem_check_leaks")},
     "",
     "the leak report, line by line",
     MEM_TRACK_LEAKS},
    {{mem_env("KORVANE_MEM_CHECK_LEAKS_FAST"), mem_ini("mem_check_leaks_fast"),
      mem_env("MEM_LEAK_TRACKING_IN_VX_MODE")},
     "",
     "the two-line leak summary, unless the leak report is on; by the last name, either goes to "
     "`korvane_vx_leak_warning.txt`",
     MEM_TRACK_LEAKS_FAST,
     MEM_TRACK_LEAKS},
    {{mem_env("KORVANE_MEM_PROFILE_AUXILIARY_TIMELINE"), mem_ini("mem_profile_auxiliary_timeline")},
     "",
     "the process's own figures over time",
     MEM_TRACK_AUXILIARY_TIMELINE},
    {{mem_env("KORVANE_MEM_PROFILE_CALL_PATHS"), mem_ini("mem_profile_call_paths")},
     "",
     "figures per call path, see [call_paths.md](call_paths.md)",
     MEM_TRACK_CALL_PATHS},
    {{mem_ini("mem_call_path_depth", MEM_SETTING_TYPE::UNSIGNED)},
     "64",
     "frames of a call path, at most 250"},
    {{mem_ini("mem_call_paths_limit", MEM_SETTING_TYPE::UNSIGNED)},
     "1000000",
     "call paths, beyond which new ones are charged to their sites alone"},
    {{mem_ini("mem_call_paths_per_bin")},
     "",
     "split call paths by profile bin, of detailed tracking"},
    {{mem_env("KORVANE_MEM_REPORT_DIRECTORY", MEM_SETTING_TYPE::TEXT),
      mem_ini("mem_report_directory", MEM_SETTING_TYPE::TEXT)},
     "",
     "the directory of all files that are written, see below; the setting wins"},
    {{mem_env("KORVANE_MEM_SNAPSHOT_SIGNAL", MEM_SETTING_TYPE::TEXT),
      mem_ini("mem_snapshot_signal", MEM_SETTING_TYPE::TEXT)},
     "",
     "the signal, by name or number, that asks for a snapshot of the reports, see below; the "
     "setting "
     "wins"},
    {{mem_env("KORVANE_MEM_SNAPSHOT_INTERVAL", MEM_SETTING_TYPE::UNSIGNED_OR_NONE),
      mem_ini("mem_snapshot_interval", MEM_SETTING_TYPE::UNSIGNED_OR_NONE)},
     "",
     "seconds between two snapshots; the setting wins"},
    {{mem_env("KORVANE_MEM_FOLLOW_FORK"), mem_ini("mem_follow_fork")},
     "",
     "profile children made by `fork` too, see below"},
    {{mem_env("KORVANE_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD", MEM_SETTING_TYPE::UNSIGNED),
      mem_ini("mem_profile_library_snapshot_period", MEM_SETTING_TYPE::UNSIGNED)},
     "131072",
     "events between two samples of the timelines; the setting wins"},
    {{mem_env("KORVANE_MEM_PROFILE_FILELINE_PEAK_SNAPSHOT_THRESHOLD", MEM_SETTING_TYPE::UNSIGNED),
      mem_ini("mem_profile_fileline_peak_snapshot_threshold", MEM_SETTING_TYPE::UNSIGNED)},
     "134217728",
     "bytes of growth between two peaks; the setting wins"},
    {{mem_env("KORVANE_MEM_PROFILE_UNWINDER", MEM_SETTING_TYPE::TEXT)},
     "eh_frame_internal",
     "how stacks are walked; also `backtrace` and `tester`, any other name ends the process"},
    {{mem_ini("mem_profile_stack_trace_ignore_depth", MEM_SETTING_TYPE::SIGNED)},
     "5",
     "innermost frames to skip"},
    {{mem_env("KORVANE_MEM_SYMBOLIZER", MEM_SETTING_TYPE::TEXT),
      mem_ini("mem_symbolizer", MEM_SETTING_TYPE::TEXT)},
     "addr2line_inlining",
     "sees through inlining; `addr2line` does not; `server` asks one program for all modules, see "
     "below; the setting wins"},
    {{mem_env("KORVANE_MEM_SYMBOL_SERVER", MEM_SETTING_TYPE::TEXT)},
     "",
     "the socket of a symbol server that runs already, see below"},
    {{mem_ini("mem_symbolizer_addr2line_usecs", MEM_SETTING_TYPE::INTEGER)},
     "2000",
     "microseconds to wait for more of an answer, for a slow machine; where no callback or "
     "function "
     "of the host answers, 0 unless set"},
    {{mem_ini("mem_user_defined_filters_file", MEM_SETTING_TYPE::TEXT)},
     "",
     "a file of frames to look through, see below"},
    {{mem_ini("mem_profile_with_incomplete_fileline_info")},
     "",
     "keep frames without a source file, as `Unknown`"},
    {{mem_ini("mem_alloc_pattern", MEM_SETTING_TYPE::SIGNED),
      mem_ini("mem_alloc_pattern_hex", MEM_SETTING_TYPE::HEX)},
     "",
     "fill new blocks with this byte; the hexadecimal one wins"},
    {{mem_ini("mem_free_pattern", MEM_SETTING_TYPE::SIGNED),
      mem_ini("mem_free_pattern_hex", MEM_SETTING_TYPE::HEX)},
     "",
     "fill blocks with this byte before they are released; the hexadecimal one wins"},
    {{mem_ini("mem_print_allocations")}, "", "log every allocation to `mem_allocations.log`"},
    {{mem_ini("mem_utils_no_chunk_allocation")},
     "",
     "every piece of a chunk allocator is a block of its own"},
    {{mem_ini("debug_msg")}, "", "print the library's debug messages"},
    {{mem_ini("dont_catch_all_exceptions")},
     "",
     "stop in the debugger when an internal error is raised while another is being reported"},
    {{mem_env("MEM_PRINT_LIB_LOAD", MEM_SETTING_TYPE::PRESENCE)},
     "",
     "print a line when a module that uses the library comes and goes; on when set, also to "
     "nothing"},
};

/// The row that holds the setting `name`. A name that is not in the table does not compile.
consteval const MEM_SETTINGS_ROW& mem_settings_row(std::string_view name) {
  for (const MEM_SETTINGS_ROW& row : mem_settings)
    for (const MEM_SETTING& setting : row.settings)
      if (setting.source != MEM_SETTING::NONE && setting.name == name) return row;
  throw "no such setting";
}

/// Where the row stands in the table.
constexpr std::size_t mem_settings_row_number(const MEM_SETTINGS_ROW& row) {
  return static_cast<std::size_t>(&row - mem_settings);
}

/// The number that a row's default is.
constexpr int mem_default_number(const MEM_SETTINGS_ROW& row) {
  int number = 0;
  for (const char digit : std::string_view(row.default_value)) number = number * 10 + (digit - '0');
  return number;
}

/// A setting by its name, checked while compiling: it is in the table and of that type.
template <MEM_SETTING_TYPE TYPE>
class MEM_NAME_OF_SETTING {
 public:
  consteval MEM_NAME_OF_SETTING(const char* name) : m_row(mem_settings_row(name)) {
    while (m_row.settings[m_index].name != std::string_view(name)) ++m_index;
    if (m_row.settings[m_index].type != TYPE) throw "a setting of another type";
  }
  constexpr const MEM_SETTINGS_ROW& row() const { return m_row; }
  constexpr const MEM_SETTING& setting() const { return m_row.settings[m_index]; }

 private:
  const MEM_SETTINGS_ROW& m_row;
  std::size_t m_index = 0;
};
