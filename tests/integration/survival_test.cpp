// Whatever the host does, it runs to the end it chose, and what can be reported is.
#include "tests/integration/tracked_program.h"

namespace {

using testing::ElementsAre;

// As the allocators give them; the C library's adds half a unit.
std::int64_t size_of_last_block() { return allocator_is("tuk_mem_malloc") ? 4104 : 4096; }

// What the program still holds at its last block's site.
std::int64_t last_block(const RUN& run) {
  return REPORT(run.file("mem_tbb_fileline.kvi.log"))
      .sum("Current bytes", "Function", "take(unsigned long)");
}

TEST(TheHost, IsTrackedToTheEnd) {
  for (const char* scenario : {"just_end", "end_threads_late", "start_again_after_the_end"}) {
    const RUN run(tracked("survival", {scenario}, everything));
    EXPECT_EQ(run.status(), 0) << scenario << run.err();
    EXPECT_GE(last_block(run), 4096) << scenario;
  }
}

TEST(AThread, LeavesNothingOfTheLibrarysInTheFigures) {
  const RUN run(tracked("survival", {"end_threads_in_every_way"}, everything));
  const REPORT report(run.file("mem_tbb_fileline.kvi.log"));
  EXPECT_EQ(last_block(run), size_of_last_block());
  for (const char* function : {"start_thread", "(anonymous namespace)::end_threads_in_every_way()"})
    EXPECT_EQ(report.sum("Cumulative bytes", "Function", function), 0) << function;
  EXPECT_EQ(report.row("Address", "OTHER").number("Current bytes"), 0);
}

TEST(TheHost, FindsItsBooksConfirmedWhateverGoesOn) {
  PROGRAM soak = tracked("", {"3"}, everything);
  soak.path = SOAK;
  const RUN run(soak);
  EXPECT_EQ(run.status(), 0) << run.out() << run.err();
}

void expect_well(const PROGRAM& c_host) {
  const RUN run(c_host);
  EXPECT_EQ(run.status(), 0) << testing::PrintToString(c_host.arguments);
  EXPECT_EQ(run.out() + run.err(), "") << testing::PrintToString(c_host.arguments);
}

TEST(AHostInC, MayCallEverythingAtAnyTime) {
  for (const char* when : {"before_the_library", "before_main", "in_main", "in_a_thread",
                           "in_a_child", "at_exit", "after_main"})
    expect_well(tracked("c_host", {when, "everything"}, everything));
  expect_well(tracked("c_host", {"cancelled", "dump_to_nobody"}, everything));
}

TEST(AHostInC, MayEndInAThreadOfLittleStack) {
  const RUN run(tracked("c_host", {"in_a_small_thread", "end_the_process"}, everything));
  EXPECT_EQ(run.status(), 0);
  EXPECT_NE(run.file("mem_tbb_fileline.kvi.log"), "");
}

TEST(AHostInC, MayRegisterFunctionsForItsEnd) {
  for (const char* symbolizer : {"addr2line", "addr2line_inlining", "server"}) {
    PROGRAM host = tracked("c_host", {"in_main", "register_exit_functions"}, per_fileline);
    host.environment["KORVANE_MEM_SYMBOLIZER"] = symbolizer;
    // Where no server is found, so that addr2line is asked in its stead.
    host.shell_prefix = "cp " TUK_MEM_LIBRARY " libtuk_mem.so.1;";
    host.environment["LD_LIBRARY_PATH"] = ".";
    host.preload = {MALLOC_LIBRARY};
    expect_well(host);
  }
}

// The child tracks nothing and reports nothing; the parent's figures are its own.
TEST(Fork, LeavesTheParentTrackingAndTheChildNot) {
  const RUN run(tracked("survival", {"fork_a_child"}, everything));
  EXPECT_EQ(run.out(), "the child ended with 0\n");
  EXPECT_EQ(last_block(run), size_of_last_block());
  EXPECT_EQ(run.file("child/mem_tbb_fileline.kvi.log"), "");
}

TEST(TheLibrary, MayBeLoadedLateAndLetGo) {
  const RUN run(tracked("late_loader", {TUK_MEM_LIBRARY}, everything));
  EXPECT_EQ(run.status(), 0) << run.err();
  const REPORT report(run.file("mem_tbb_fileline.kvi.log"));
  const auto taken = [&](const char* column) {
    return report.sum(column, "Function", "take(unsigned long)");
  };
  EXPECT_EQ(taken("Cumulative requested bytes"), 3000 + 2048 + 4096);
  EXPECT_EQ(taken("Current bytes"), 3072);
}

TEST(TheLibrary, IsStartedByAMappingBeforeItsTurnAndLosesNothing) {
  ENVIRONMENT environment = everything;
  environment["MAP_EARLY"] = "1";
  const RUN run(tracked("survival", {"just_end"}, environment));
  EXPECT_EQ(last_block(run), size_of_last_block());
  const REPORT fileline(run.file("mem_tbb_fileline.kvi.log"));
  EXPECT_EQ(fileline.sum("Current bytes", "Function", "map_early"), 123456);
  EXPECT_EQ(fileline.sum("Cumulative blocks", "Function", "map_early"), 1);
}

TEST(AModule, RebuiltAtTheSamePlaceIsWalkedByItsOwnRules) {
  const RUN run(tracked("survival", {"reload_plugins"}, everything));
  EXPECT_EQ(run.status(), 0) << run.err();
  EXPECT_EQ(run.out(), "4 at the same place\n");
  const REPORT report(run.file("mem_tbb_fileline.kvi.log"));
  for (const int bytes : {1000, 2000})
    EXPECT_EQ(report.sum("Cumulative requested bytes", "Function",
                         "void* (anonymous namespace)::take_by<" + std::to_string(bytes) +
                             ">((anonymous namespace)::PLUGIN const&)"),
              4 * bytes);
}

TEST(AModule, KeepsItsFiguresAndBlocksWhenAnotherTakesItsPlace) {
  const RUN run(tracked("survival", {"replace_module"}, everything));
  EXPECT_EQ(run.out(), "1 at the same place\n2 left\n");
  const REPORT report(run.file("mem_tbb_subsystem.kvi.log"));
  const auto& first = report.row("Subsystem", "first");
  const auto& second = report.row("Subsystem", "second");
  EXPECT_EQ(first.number("Cumulative requested bytes"), (1 << 20) + 500 + 250);
  EXPECT_EQ(first.number("Current bytes"), 256);
  EXPECT_EQ(second.number("Current bytes"), 3072);
  const REPORT sites(run.file("mem_tbb_fileline.kvi.log"));
  std::map<std::int64_t, std::int64_t> peak_by_current;
  for (const REPORT::ROW& row : sites.rows)
    if (row.text("Function") == "allocate_in_shared_library")
      peak_by_current[row.number("Current bytes")] = row.number("Peak bytes");
  EXPECT_THAT(peak_by_current, ElementsAre(std::pair(256, 1 << 20), std::pair(3072, 0)));
}

}  // namespace
