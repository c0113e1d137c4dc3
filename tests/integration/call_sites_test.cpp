// Every block is charged to the line that asked for it, with the figures the program has in its
// own books.
#include "tests/integration/tracked_program.h"

namespace {

RUN run_call_sites(const std::string& build, ENVIRONMENT more = {}) {
  more.emplace("KORVANE_MEM_PROFILE_PER_FILELINE", "1");
  PROGRAM program = tracked(build, {}, std::move(more));
  if (build == "call_sites_unlinked") program.preload.emplace_back(TUK_MEM_LIBRARY);
  return RUN(program);
}

REPORT expect_exact_books(const RUN& run) {
  EXPECT_EQ(run.status(), 0) << run.err();
  REPORT fileline(run.file("mem_tbb_fileline.kvi.log"));
  const BOOKS books = books_of(run);
  EXPECT_EQ(books.size(), allocator_is("jemalloc") ? 24U : 25U);
  expect_books(fileline, books);
  return fileline;
}

TEST(CallSites, AreChargedWithWhatTheProgramAskedForWithEveryUnwinder) {
  constexpr const char* rows[][2] = {
      {"call_sites_pie_O0", "default"},   {"call_sites_fixed_O2", "default"},
      {"call_sites_unlinked", "default"}, {"call_sites_pie_O2", "eh_frame_internal"},
      {"call_sites_pie_O2", "backtrace"}, {"call_sites_pie_O2", "tester"}};
  for (const auto& [build, unwinder] : rows) {
    SCOPED_TRACE(testing::Message() << build << ", unwinder " << unwinder);
    const RUN run =
        run_call_sites(build, {{"KORVANE_MEM_PROFILE_UNWINDER", unwinder}, {"debug_msg", "on"}});
    expect_exact_books(run);
    EXPECT_THAT(run.out(), testing::Not(testing::HasSubstr("unwinders differ")));
  }
}

// The loader then knows the executable by its bare name only.
TEST(CallSites, OfAProgramFoundThroughPathAreKnown) {
  PROGRAM program = tracked(
      "call_sites_pie_O2", {},
      {{"KORVANE_MEM_PROFILE_PER_FILELINE", "1"}, {"PATH", PROGRAMS_DIRECTORY ":/usr/bin:/bin"}});
  program.path = "call_sites_pie_O2";
  expect_exact_books(RUN(program));
}

// With frames kept that have no source file, one frame of the allocator left on a stack would be
// taken for the site: so exactly those in front of the caller are skipped, but for the one more
// that posix_memalign has.
TEST(CallSites, HaveNoFrameOfTheAllocatorInFront) {
  for (const char* build : {"call_sites_pie_O0", "call_sites_pie_O2"}) {
    SCOPED_TRACE(build);
    const RUN run = run_call_sites(build, {{"mem_profile_with_incomplete_fileline_info", "on"}});
    const REPORT fileline(run.file("mem_tbb_fileline.kvi.log"));
    BOOKS books = books_of(run);
    if (allocator_is("tcmalloc")) {
      const REPORT::ROW& by_posix = fileline.row("Cumulative requested bytes", "1024");
      EXPECT_EQ(by_posix.text("File"), "Unknown");
      EXPECT_THAT(by_posix.text("Function"), testing::HasSubstr("posix_memalign"));
      EXPECT_EQ(std::erase_if(books,
                              [](const auto& site) {
                                return site.second.at("Cumulative requested bytes") == 1024;
                              }),
                1U);
    }
    expect_books(fileline, books);
  }
}

TEST(CallSites, SumUpToTheirModules) {
  const RUN run = run_call_sites("call_sites_pie_O2", {{"KORVANE_MEM_PROFILE_PER_LIBRARY", "1"}});
  const REPORT fileline = expect_exact_books(run);
  const REPORT subsystem(run.file("mem_tbb_subsystem.kvi.log"));
  for (const char* module : {"call_sites_pie_O2", "call_sites_shared"})
    for (const char* column :
         {"Current bytes", "Peak bytes", "Cumulative bytes", "Cumulative requested bytes",
          "Cumulative mismatched bytes", "Current blocks", "Peak blocks", "Cumulative blocks"})
      EXPECT_EQ(subsystem.row("Subsystem", module).number(column),
                fileline.sum(column, "Module", module))
          << column << " of " << module;
}

}  // namespace
