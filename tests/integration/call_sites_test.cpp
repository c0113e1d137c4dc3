// Every block is charged to the line that asked for it, with the figures the program has in its
// own books.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "tests/integration/tracked_program.h"

namespace {

using testing::ElementsAre;

constexpr std::size_t sites_of_the_program = 24;

REPORT expect_exact_books(const RUN& run) {
  EXPECT_EQ(run.status(), 0) << run.err();
  REPORT fileline(run.file("mem_tbb_fileline.kvi.log"));
  const BOOKS books = books_of(run);
  EXPECT_EQ(books.size(), sites_of_the_program);
  expect_books(fileline, books);
  return fileline;
}

ENVIRONMENT per_fileline(ENVIRONMENT more = {}) {
  more["KORVANE_MEM_PROFILE_PER_FILELINE"] = "1";
  return more;
}

TEST(CallSites, AreChargedWithWhatTheProgramAskedFor) {
  for (const char* build : {"call_sites_pie_O0", "call_sites_pie_O2", "call_sites_fixed_O2"}) {
    SCOPED_TRACE(build);
    expect_exact_books(RUN(tracked(build, per_fileline())));
  }
}

TEST(CallSites, AreTheSameWithEveryUnwinder) {
  for (const char* unwinder : {"eh_frame_internal", "backtrace", "tester"}) {
    SCOPED_TRACE(unwinder);
    const RUN run(
        tracked("call_sites_pie_O2",
                per_fileline({{"KORVANE_MEM_PROFILE_UNWINDER", unwinder}, {"debug_msg", "on"}})));
    expect_exact_books(run);
    EXPECT_EQ(run.out().find("unwinders differ"), std::string::npos) << run.out();
  }
}

// With frames kept that have no source file, one frame of the allocator left on a stack would be
// taken for the site: so exactly those in front of the caller are skipped, but for the one more
// that posix_memalign has.
TEST(CallSites, HaveNoFrameOfTheAllocatorInFront) {
  for (const char* build : {"call_sites_pie_O0", "call_sites_pie_O2"}) {
    SCOPED_TRACE(build);
    const RUN run(
        tracked(build, per_fileline({{"mem_profile_with_incomplete_fileline_info", "on"}})));
    const REPORT fileline(run.file("mem_tbb_fileline.kvi.log"));
    const auto& by_posix = fileline.row("Cumulative requested bytes", "1024");
    EXPECT_EQ(by_posix.text("Module"), "tcmalloc");
    EXPECT_EQ(by_posix.text("File"), "Unknown");
    EXPECT_THAT(by_posix.text("Function"), testing::HasSubstr("posix_memalign"));
    BOOKS books = books_of(run);
    EXPECT_EQ(std::erase_if(books,
                            [](const auto& site) {
                              return site.second.at("Cumulative requested bytes") == 1024;
                            }),
              1U);
    expect_books(fileline, books);
  }
}

TEST(CallSites, OfAProgramFoundThroughPathAreKnown) {
  PROGRAM program = tracked("call_sites_pie_O2", per_fileline());
  program.path = "call_sites_pie_O2";
  program.shell_prefix = "PATH=" PROGRAMS_DIRECTORY ":$PATH";
  expect_exact_books(RUN(program));
}

TEST(CallSites, SumUpToTheirModules) {
  const RUN run(
      tracked("call_sites_pie_O2", per_fileline({{"KORVANE_MEM_PROFILE_PER_LIBRARY", "1"}})));
  const REPORT fileline = expect_exact_books(run);
  const REPORT subsystem(run.file("mem_tbb_subsystem.kvi.log"));
  EXPECT_THAT(
      subsystem.header(),
      ElementsAre("Subsystem", "Current bytes", "Max bytes", "Peak bytes", "Cumulative bytes",
                  "Cumulative requested bytes", "Cumulative mismatched bytes", "Current blocks",
                  "Peak blocks", "Cumulative blocks"));
  for (const char* module : {"call_sites_pie_O2", "call_sites_shared"}) {
    const REPORT::ROW& sum = subsystem.row("Subsystem", module);
    for (const std::string& column : subsystem.header()) {
      if (column == "Subsystem" || column == "Max bytes") continue;
      EXPECT_EQ(sum.number(column),
                fileline.sum(column,
                             [&](const REPORT::ROW& row) { return row.text("Module") == module; }))
          << column << " of " << module;
    }
  }
  // 1000 + 2000 + 3000 + 4000 asked for.
  EXPECT_EQ(subsystem.row("Subsystem", "call_sites_shared").number("Cumulative requested bytes"),
            10000);
}

// What the shared library asked for is charged to the line that called it.
TEST(CallSites, MoveToTheCallerOfAModuleThatTheUserFilters) {
  PROGRAM program =
      tracked("call_sites_pie_O2", per_fileline({{"mem_user_defined_filters_file", "my_filters"}}));
  program.shell_prefix = "echo 'filter_module call_sites_sh # a wrapper' >my_filters;";
  const RUN run(program);
  const REPORT fileline(run.file("mem_tbb_fileline.kvi.log"));
  const REPORT::ROW& caller = fileline.row("Cumulative requested bytes", "10000");
  EXPECT_THAT(caller.text("File"), testing::EndsWith("/call_sites.cpp"));
  EXPECT_EQ(caller.text("Function"), "main");
  EXPECT_EQ(caller.number("Cumulative blocks"), 4);
  EXPECT_THAT(run.file("mem_tbb_filters.kvi.log"),
              testing::ContainsRegex("\n\"0x[0-9a-f]+\",\"call_sites_shared\",\"\",\"\"\n"));
}

}  // namespace
