// Start-up and its object. What happens before main is watched in a child that runs no test.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "include/tuk_mem.h"
#include "mem/host/message.h"
#include "tests/support/run_program.h"

namespace {

TEST(Initializer, OnlyTheFirstStartsUpAndOnlyTheLastTearsDown) {
  mem_set_tbb_exe_string("kept");
  {
    const MEM_INITIALIZER second("MSGR");
    EXPECT_EQ(MEM_INITIALIZER::s_init_counter, 2);
    EXPECT_FALSE(is_shutting_down);
  }
  EXPECT_EQ(MEM_INITIALIZER::s_init_counter, 1);
  EXPECT_TRUE(is_shutting_down) << "the host's message module has gone";
  EXPECT_STREQ(mem_get_tbb_exe_string(), "kept");
}

using ENVIRONMENT = std::map<std::string, std::string>;

void expect_start(const ENVIRONMENT& environment, int status, const char* said) {
  const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
  const RUN run({.path = self, .arguments = {"--gtest_filter=-*"}, .environment = environment});
  EXPECT_EQ(run.status(), status) << said;
  EXPECT_THAT(run.out() + run.err(), testing::HasSubstr(said));
}

TEST(StartUp, DoesWhatTheEnvironmentAsksFor) {
  expect_start({{"MEM_PRINT_LIB_LOAD", ""}}, 0, "Loading: MEM\n");
  expect_start({{"MEM_PRINT_LIB_LOAD", ""}}, 0, "Unloading: MEM\n");
  expect_start({{"debug_msg", "on"}}, 0,
               "Debug: MEM: Native allocator:          'TCMalloc'\n"
               "Debug: MEM: Allocator used by Korvane: 'TCMalloc'\n");
  expect_start(
      {{"debug_msg", "on"}, {"mem_symbolizer", "Addr2line"}}, 0,
      "MEM: Couldn't find symbolizer \"Addr2line\".  Using default symbolizer \"addr2line");
  const ENVIRONMENT tuned = {{"debug_msg", "on"},
                             {"mem_symbolizer", "addr2line"},
                             {"KORVANE_MEM_CHECK_LEAKS", "1"},
                             {"mem_profile_stack_trace_ignore_depth", "6"}};
  expect_start(tuned, 0,
               "Debug: MEM: Changing MEM_STACK_TRACE_IGNORE_DEPTH from default 5 to 6\n"
               "Debug: MEM: Using symbolizer addr2line\n");
  expect_start({{"KORVANE_MEM_PROFILE_UNWINDER", "nosuch"}}, 134,
               "Internal error: MEM: mem_tbb_unwinder (mem/mem_tbb_tracker:");
  expect_start({{"mem_profile_stack_trace_ignore_depth", "x"}}, 134, "stoi");
}

}  // namespace
