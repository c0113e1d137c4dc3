// What the environment and the settings ask for.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "include/tuk_mem.h"
#include "mem/host/settings.h"
#include "mem/settings/tuning.h"
#include "mem/state/granularity.h"
#include "mem/tracker/signal_number.h"
#include "tests/support/debug_lines.h"
#include "tests/support/report.h"
#include "tests/support/temporary_directory.h"

namespace {

using testing::HasSubstr, testing::MatchesRegex, testing::StartsWith;

constexpr std::pair<const char*, std::uint32_t> switches[] = {
    {"KORVANE_MEM_PROFILE_ALL=no", 95},
    {"KORVANE_MEM_PROFILE_ALL=0 mem_profile_all=off", 0},
    {"KORVANE_MEM_PROFILE_ALL= mem_profile_all=on", 95},
    {"KORVANE_MEM_PROFILE_ALL=1 KORVANE_MEM_PROFILE_CALL_PATHS=1 mem_check_leaks_fast=on", 223},
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

TEST(Signal, IsKnownByAllItsNames) {
  constexpr std::pair<const char*, int> rows[] = {
      {"USR1", SIGUSR1},   {"sigusr1", SIGUSR1}, {"10", 10},       {"SIGIO", SIGIO},
      {"POLL", SIGIO},     {"cld", SIGCHLD},     {"IOT", SIGABRT}, {"RTMIN", 34},
      {"sigrtmin+30", 64}, {"RTMAX-1", 63},      {"RTMIN+31", 0},  {"RTMIN-1", 0},
      {"SIG", 0},          {"RTMAX-x", 0},       {"-10", 0},       {"", 0}};
  for (const auto& [name, number] : rows) EXPECT_EQ(mem_signal_number(name), number) << name;
}

TEST(Granularity, IsWhatTheSwitchesAskFor) {
  for (const auto& [set, granularity] : switches) {
    std::vector<std::string> variables = split(set, ' ');
    for (std::string& variable : variables) putenv(variable.data());
    EXPECT_EQ(mem_get_tracking_granularity_from_env(), granularity) << set;
    for (std::string& variable : variables) unsetenv(split(variable, '=')[0].c_str());
  }
}

std::string asked;

// A host that answers everything from its settings file sees each switch once, in this order.
TEST(Granularity, AsksTheHostInOrderAndForNothingThatIsDecided) {
  mem_set_cfg_is_on_callback([](const char* name, bool default_value) {
    asked.append(name).append(" ");
    return default_value;
  });
  mem_get_tracking_granularity_from_env();
  EXPECT_EQ(asked,
            "mem_profile_all mem_profile_per_bin mem_track_user_memory "
            "mem_profile_per_bin_detailed mem_profile_per_library mem_profile_per_fileline "
            "mem_check_leaks mem_check_leaks_fast mem_profile_auxiliary_timeline "
            "mem_profile_call_paths ");
  asked.clear();
  setenv("KORVANE_MEM_CHECK_LEAKS", "1", 1);
  setenv("KORVANE_MEM_PROFILE_PER_BIN", "1", 1);
  mem_get_tracking_granularity_from_env();
  EXPECT_EQ(asked,
            "mem_profile_all mem_profile_per_bin_detailed mem_profile_per_library "
            "mem_profile_per_fileline mem_profile_auxiliary_timeline mem_profile_call_paths ");
}

TEST(Initialisation, ThatComesTooLateSaysSo) {
  const auto told = debug_lines_of([] {
    mem_initialize_tbb_tracking(MEM_TRACK_NONE);
    setenv("KORVANE_MEM_CHECK_LEAKS_FAST", "1", 1);
    mem_initialize_tbb_tracking_from_env();
    mem_set_tbb_memory_tracking_enabled(false);
  });
  EXPECT_THAT(told, testing::ElementsAre(
                        "Memory tracking was initialized before: granularity 32 has no effect"));
}

std::string errors_of(const std::function<void()>& work) {
  testing::internal::CaptureStderr();
  work();
  return testing::internal::GetCapturedStderr();
}

TEST(Number, ComesFromTheSettingElseFromTheEnvironmentAndIsZeroOnlyForNone) {
  constexpr std::tuple<const char*, const char*, std::uint64_t, const char*> rows[] = {
      {"12abc", "", 12, "MEM: [^\n]*PERIOD is \"12abc\"[^\n]*: 12 holds\n"},
      {"0", "", 131072, "MEM: [^\n]*PERIOD is \"0\"[^\n]*: 131072 holds\n"},
      {"abc", "", 131072, "MEM: [^\n]*PERIOD is \"abc\"[^\n]*: 131072 holds\n"},
      {"99999999999999999999", "", 131072, "MEM: [^\n]*PERIOD is \"9+\"[^\n]*: 131072 holds\n"},
      {"", "", 131072, ""},
      {"64", "7", 7, ""},
      {"64", "0", 64, "MEM: [^\n]*period is \"0\"[^\n]*: 64 holds\n"}};
  for (const auto& [environment, setting, read, said] : rows) {
    setenv("KORVANE_MEM_PROFILE_LIBRARY_SNAPSHOT_PERIOD", environment, 1);
    setenv("mem_profile_library_snapshot_period", setting, 1);
    EXPECT_THAT(errors_of(mem_read_snapshot_settings), MatchesRegex(said));
    EXPECT_EQ(mem_module_snapshot_delay.events(), read) << environment;
    for (const std::uint64_t number : {0UL, 1UL, 6UL, 7UL, 24UL, 131072UL * 84, 131072UL * 84 - 1})
      EXPECT_EQ(mem_module_snapshot_delay.divides(number), number % read == 0) << number;
  }
  setenv("KORVANE_MEM_SNAPSHOT_INTERVAL", "60", 1);
  setenv("mem_snapshot_interval", "0", 1);
  std::uint64_t interval = 1;
  EXPECT_EQ(errors_of([&] {
              interval = mem_setting_unsigned(mem_settings_row("mem_snapshot_interval"));
            }),
            "");
  EXPECT_EQ(interval, 0U);
  mem_cfg_get_int_value("", 0);
  mem_set_cfg_get_int_value_callback(nullptr);  // found, and taken out again
  setenv("mem_symbolizer_addr2line_usecs", "7ms", 1);
  EXPECT_THAT(errors_of([] { mem_setting_integer("mem_symbolizer_addr2line_usecs"); }),
              HasSubstr("\"7ms\", which is not a decimal number from 0 to 2147483647: 7 holds\n"));
}

void read_all_numbers() {
  mem_read_snapshot_settings();
  mem_read_ignore_depth_setting();
  mem_read_allocator_aid_settings();
}

// Set, read, and refused as whatever was thrown says.
TEST(Number, OfASettingIsNothingButANumber) {
  constexpr std::tuple<const char*, const char*, const char*> rows[] = {
      {"mem_profile_library_snapshot_period", "64 ", "stoull"},
      {"mem_profile_library_snapshot_period", "-64", "stoull"},
      {"mem_profile_fileline_peak_snapshot_threshold", "99999999999999999999", "stoull"},
      {"mem_profile_stack_trace_ignore_depth", "five", "stoi"},
      {"mem_profile_stack_trace_ignore_depth", "-3", ""},
      {"mem_alloc_pattern", "12abc", "stoi"},
      {"mem_alloc_pattern", " 12", "stoi"},
      {"mem_alloc_pattern", "2147483648", "stoi"},
      {"mem_alloc_pattern", "-1", ""},
      {"mem_alloc_pattern_hex", "0x", "stoi"},
      {"mem_free_pattern", "1\n2", "stoi"},
      {"mem_free_pattern_hex", "0xCafe", ""},
      {"mem_free_pattern_hex", "ef gh", "stoi"}};
  for (const auto& [name, text, refused] : rows) {
    setenv(name, text, 1);
    std::string thrown;
    const std::string errors = errors_of([&thrown] {
      try {
        read_all_numbers();
      } catch (const std::logic_error& error) {
        thrown = error.what();
      }
    });
    unsetenv(name);
    EXPECT_EQ(thrown, refused) << name << " " << text;
    EXPECT_EQ(std::ranges::count(errors, '\n'), thrown.empty() ? 0 : 1) << errors;
    EXPECT_THAT(errors, StartsWith(thrown.empty() ? "" : "MEM: " + std::string(name) + " is "));
  }
}

}  // namespace
