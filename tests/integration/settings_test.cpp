// How a program is told what to track, from outside and by its host.
#include <unistd.h>

#include "tests/integration/tracked_program.h"

namespace {

using testing::HasSubstr, testing::MatchesRegex;

// It asks for everything in its settings, and nothing does in the environment.
TEST(TheReadmesHost, IsTrackedAsItsSettingsSay) {
  const RUN run(tracked("readme_host", {}));
  EXPECT_EQ(run.err(), "");
  EXPECT_THAT(run.out(), MatchesRegex("parsing took 10[0-9]{5} bytes\n"));
  const REPORT bins(run.file("mem_tbb_pbin_stats.my_host.log"));
  EXPECT_GE(bins.row("Name", "input::parse").number("Max bytes"), 1000000);
  const REPORT fileline(run.file("mem_tbb_fileline.my_host.log"));
  EXPECT_EQ(fileline.row("Cumulative requested bytes", "1000000").text("Function"), "main");
}

// The caller's environment means nothing to a program with more rights than the caller.
TEST(ASetuidProgram, IsSwitchedByNoEnvironment) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can make a program setuid";
  for (const bool is_setuid : {false, true}) {
    PROGRAM program = tracked("scenarios", {},
                              {{"KORVANE_MEM_PROFILE_ALL", "1"},
                               {"mem_print_allocations", "on"},
                               {"debug_msg", "on"},
                               {"MEM_PRINT_LIB_LOAD", ""}});
    program.shell_prefix = "cp " + program.path + " host; chmod " + (is_setuid ? "4755" : "755") +
                           " host; chmod 777 .;";
    program.path = "setpriv";
    program.arguments = {"--reuid=65534", "--clear-groups", "./host", "leak"};
    const RUN run(program);
    EXPECT_EQ(run.status(), 0) << run.err();
    if (is_setuid) {
      EXPECT_EQ(run.out() + run.err(), "");
      EXPECT_EQ(run.file_names(), std::set<std::string>{"host"});
    } else {
      EXPECT_THAT(run.out(), HasSubstr("Loading: MEM\n"));
      EXPECT_TRUE(run.file_names().contains("mem_tbb_fileline.leaky.log"));
    }
  }
}

}  // namespace
