// Which kinds of tracking the environment and the host's settings ask for.
#include <unistd.h>

#include <boost/filesystem/path.hpp>

#include "include/tuk_mem.h"
#include "mem/base/check.h"
#include "mem/host/settings.h"
#include "mem/state/granularity.h"

namespace {

// What the report writers are told of, beside the granularity.
struct REPORT_ROW {
  MEM_TRACKING_GRANULARITY bit;
  decltype(mem_tracking_library_env_set)* asked_for;
};

constexpr REPORT_ROW reports[] = {
    {MEM_TRACK_PER_BIN_DETAILED, &mem_tracking_per_bin_detailed_env_set},
    {MEM_TRACK_PER_LIBRARY, &mem_tracking_library_env_set},
    {MEM_TRACK_PER_FILELINE, &mem_tracking_fileline_env_set},
    {MEM_TRACK_AUXILIARY_TIMELINE, &mem_tracking_auxiliary_timeline_env_set},
    {MEM_TRACK_CALL_PATHS, &mem_tracking_call_paths_env_set},
};

void note_reports(MEM_TRACKING_GRANULARITY bits) {
  for (const REPORT_ROW& report : reports)
    if ((bits & report.bit) != MEM_TRACK_NONE) *report.asked_for = true;
}

std::string executable_name() {
  char path[1024];
  const ssize_t ret = readlink("/proc/self/exe", path, sizeof path - 1);
  mem_check(ret != -1, "ret != -1");
  path[ret] = '\0';
  return boost::filesystem::path(path).filename().string();
}

bool profiles_another_executable() {
  const std::string only = mem_setting_text("mem_only_profile_single_executable");
  return !only.empty() && only != executable_name();
}

}  // namespace

MEM_TRACKING_GRANULARITY mem_get_tracking_granularity_from_env() {
  MEM_TRACKING_GRANULARITY result = MEM_TRACK_NONE;
  if (profiles_another_executable()) return result;
  for (const MEM_SETTINGS_ROW& row : mem_settings) {
    if ((row.tracks & ~result) == MEM_TRACK_NONE || (result & row.unless_on) != MEM_TRACK_NONE)
      continue;
    if (!mem_setting_is_on(row)) continue;
    note_reports(row.tracks);
    result = result | row.tracks;
  }
  return result;
}
