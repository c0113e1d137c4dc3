// Which kinds of tracking the environment and the host's settings ask for.
#include <unistd.h>

#include <boost/filesystem/path.hpp>
#include <cstdlib>
#include <cstring>

#include "include/tuk_mem.h"
#include "mem/base/check.h"
#include "mem/state/granularity.h"

namespace {

// One way of asking for a kind of tracking.
struct SOURCE {
  enum KIND { NONE, ENVIRONMENT, SETTING } kind = NONE;
  const char* name = nullptr;

  bool is_on() const {
    switch (kind) {
      case ENVIRONMENT:
        return mem_env_is_on(name);
      case SETTING:
        return mem_cfg_is_on(name, false);
      case NONE:
        break;
    }
    return false;
  }
};

constexpr SOURCE env(const char* name) { return {SOURCE::ENVIRONMENT, name}; }
constexpr SOURCE ini(const char* name) { return {SOURCE::SETTING, name}; }

// A kind of tracking and who may ask for it, asked in this order until one is on.
struct SWITCH {
  MEM_TRACKING_GRANULARITY bit;
  MEM_TRACKING_GRANULARITY unless_on;  // not asked for at all beside this kind
  SOURCE sources[3];
  std::atomic<bool>* env_set;  // noted for the report writers; may be null

  bool is_on() const {
    for (const SOURCE& source : sources)
      if (source.is_on()) return true;
    return false;
  }
};

constinit const SWITCH switches[] = {
    {MEM_TRACK_PER_BIN,
     MEM_TRACK_NONE,
     {env("KORVANE_MEM_PROFILE_PER_BIN"), ini("mem_profile_per_bin"), ini("mem_track_user_memory")},
     nullptr},
    {MEM_TRACK_PER_BIN_DETAILED,
     MEM_TRACK_NONE,
     {env("KORVANE_MEM_PROFILE_BIN_TAG_PLOT"), ini("mem_profile_per_bin_detailed"), {}},
     &mem_tracking_per_bin_detailed_env_set},
    {MEM_TRACK_PER_LIBRARY,
     MEM_TRACK_NONE,
     {env("KORVANE_MEM_PROFILE_PER_LIBRARY"), ini("mem_profile_per_library"), {}},
     &mem_tracking_library_env_set},
    {MEM_TRACK_PER_FILELINE,
     MEM_TRACK_NONE,
     {env("KORVANE_MEM_PROFILE_PER_FILELINE"), ini("mem_profile_per_fileline"), {}},
     &mem_tracking_fileline_env_set},
    {MEM_TRACK_LEAKS,
     MEM_TRACK_NONE,
     {env("KORVANE_MEM_CHECK_LEAKS"), ini("mem_check_leaks"), {}},
     nullptr},
    {MEM_TRACK_LEAKS_FAST,
     MEM_TRACK_LEAKS,
     {env("KORVANE_MEM_CHECK_LEAKS_FAST"), ini("mem_check_leaks_fast"),
      env("MEM_LEAK_TRACKING_IN_VX_MODE")},
     nullptr},
    {MEM_TRACK_AUXILIARY_TIMELINE,
     MEM_TRACK_NONE,
     {env("KORVANE_MEM_PROFILE_AUXILIARY_TIMELINE"), ini("mem_profile_auxiliary_timeline"), {}},
     &mem_tracking_auxiliary_timeline_env_set},
};

std::string executable_name() {
  char path[1024];
  const ssize_t ret = readlink("/proc/self/exe", path, sizeof path - 1);
  mem_check(ret != -1, "ret != -1");
  path[ret] = '\0';
  return boost::filesystem::path(path).filename().string();
}

bool profiles_another_executable() {
  const std::string only = mem_cfg_get_value("mem_only_profile_single_executable");
  return !only.empty() && only != executable_name();
}

// Not mem_env_is_on: only exactly "0" is off here, "00" is on.
bool profile_all_is_on() {
  const char* value = std::getenv("KORVANE_MEM_PROFILE_ALL");
  if (value != nullptr && *value != '\0' && std::strcmp(value, "0") != 0) return true;
  return mem_cfg_is_on("mem_profile_all", false);
}

void note_every_report() {
  for (const SWITCH& one : switches)
    if (one.env_set != nullptr) *one.env_set = true;
}

}  // namespace

MEM_TRACKING_GRANULARITY mem_get_tracking_granularity_from_env() {
  if (profiles_another_executable()) return MEM_TRACK_NONE;
  if (profile_all_is_on()) {
    note_every_report();
    return MEM_TRACK_ALL;
  }
  MEM_TRACKING_GRANULARITY result = MEM_TRACK_NONE;
  for (const SWITCH& one : switches) {
    if ((result & one.unless_on) != MEM_TRACK_NONE || !one.is_on()) continue;
    result = result | one.bit;
    if (one.env_set != nullptr) *one.env_set = true;
  }
  return result;
}
