// What the environment and the settings ask for.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "include/tuk_mem.h"
#include "mem/settings/tuning.h"
#include "mem/state/granularity.h"
#include "mem/state/tracker_state.h"
#include "tests/support/debug_lines.h"
#include "tests/support/report.h"

namespace {

constexpr std::pair<const char*, std::uint32_t> switches[] = {
    {"KORVANE_MEM_PROFILE_ALL=no", 95},
    {"KORVANE_MEM_PROFILE_ALL=0 mem_profile_all=off", 0},
    {"KORVANE_MEM_PROFILE_ALL= mem_profile_all=on", 95},
    {"KORVANE_MEM_PROFILE_PER_BIN=1 KORVANE_MEM_PROFILE_BIN_TAG_PLOT=1", 3},
    {"mem_track_user_memory=on", 1},
    {"KORVANE_MEM_PROFILE_PER_LIBRARY=0 mem_profile_per_library=on", 4},
    {"KORVANE_MEM_PROFILE_PER_FILELINE=1 mem_profile_per_fileline=off", 8},
    {"mem_profile_per_fileline=on KORVANE_MEM_PROFILE_AUXILIARY_TIMELINE=1", 72},
    {"KORVANE_MEM_CHECK_LEAKS=1 mem_check_leaks_fast=on", 16},
    {"mem_check_leaks_fast=on mem_profile_auxiliary_timeline=on", 96},
    {"MEM_LEAK_TRACKING_IN_VX_MODE=1", 32},
    {"mem_only_profile_single_executable=unit_tests mem_check_leaks=on", 16},
    {"mem_only_profile_single_executable=unit_test KORVANE_MEM_PROFILE_ALL=1", 0}};

TEST(Granularity, IsWhatTheSwitchesAskFor) {
  for (const auto& [set, granularity] : switches) {
    std::vector<std::string> variables = split(set, ' ');
    for (std::string& variable : variables) putenv(variable.data());
    EXPECT_EQ(mem_get_tracking_granularity_from_env(), granularity) << set;
    for (std::string& variable : variables) unsetenv(split(variable, '=')[0].c_str());
  }
}

TEST(Number, ComesFromTheSettingElseFromTheEnvironmentAndIsNeverZero) {
  const auto period = [](const char* environment, const char* setting) {
    setenv("KORVANE_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD", environment, 1);
    setenv("mem_profile_library_snapshot_period", setting, 1);
    mem_module_snapshot_delay = MEM_PERIOD(131072);
    mem_read_snapshot_settings();
    return mem_module_snapshot_delay.events();
  };
  constexpr std::tuple<const char*, const char*, std::uint64_t> rows[] = {
      {"12abc", "", 12}, {"0", "", 131072}, {"abc", "", 131072}, {"64", "7", 7}};
  for (const auto& [environment, setting, read] : rows) {
    EXPECT_EQ(period(environment, setting), read) << environment;
    for (const std::uint64_t number : {0UL, 1UL, 6UL, 7UL, 24UL, 131072UL * 84, 131072UL * 84 - 1})
      EXPECT_EQ(mem_module_snapshot_delay.divides(number), number % read == 0) << number;
  }
  EXPECT_THAT(debug_lines_of([&] { EXPECT_EQ(period("64", "0"), 64U); }),
              testing::ElementsAre("setting \"mem_profile_library_snapshot_period\" refused: \"0\" "
                                   "is out of range, 64 stays in force"));
  EXPECT_THROW(period("64", "99999999999999999999"), std::out_of_range);
  setenv("mem_alloc_pattern_hex", "xy", 1);
  EXPECT_THROW(mem_read_allocator_aid_settings(), std::invalid_argument);
}

}  // namespace
