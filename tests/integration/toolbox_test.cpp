// What a host gets beside the profiler, in real programs: the end when memory runs out and
// the list of optimised modules.
#include <regex>

#include "tests/integration/tracked_program.h"

namespace {

constexpr const char* the_report = "\nOut of memory \\(([0-9]+) megabytes used\\)\n";
constexpr const char* the_handler = "the host's handler\n";

// Its words, whether with the allocator, and then its status and what it says on either stream.
const std::tuple<std::vector<std::string>, bool, int, const char*, const char*> endings[] = {
    {{"library"}, false, 1, "", the_report},
    {{"threads"}, false, 1, "", the_report},
    {{"threads", "malloc"}, true, 1, "", the_report},
    {{"handler"}, false, 1, the_handler, ""},
    {{"handler", "threads", "malloc"}, true, 1, the_handler, ""},
    {{"meanwhile", "threads"}, false, 1, the_handler, ""},
    {{"malloc"}, true, 0, "still here\n", ""}};

TEST(OutOfMemory, EndsWithThePeakReportedOnceOrAsTheHostsHandlerSays) {
  constexpr int limit_megabytes = 2048;  // decimal, as the report counts; 1953 in binary ones
  for (const auto& [words, with_allocator, status, out, err] : endings) {
    SCOPED_TRACE(testing::PrintToString(words));
    PROGRAM program = tracked("runs_out_of_memory", words);
    if (!with_allocator) program.preload = {};
    program.shell_prefix = "ulimit -v 2000000;";
    const RUN run(program);
    EXPECT_EQ(run.status(), status);
    EXPECT_EQ(run.out(), out);
    std::smatch peak;
    ASSERT_TRUE(std::regex_match(run.err(), peak, std::regex(err))) << run.err();
    if (peak.size() > 1) {
      EXPECT_NEAR(std::stoi(peak[1]), limit_megabytes - 40, 40);
    }
  }
}

// Small blocks leave no room for any other. Two threads find the memory gone at the same time.
TEST(OutOfMemory, LeavesTheReportsWhole) {
  using testing::HasSubstr, testing::EndsWith;
  const std::tuple<std::vector<std::string>, const char*> rows[] = {
      {{"library", "small"}, "\nOut of memory ("},
      {{"library", "small", "threads", "interrupted"}, "\nOut of memory ("},
      {{"throws", "small"}, ""}};
  for (const auto& [words, err] : rows) {
    SCOPED_TRACE(testing::PrintToString(words));
    PROGRAM program = tracked("runs_out_of_memory", words, {{"KORVANE_MEM_PROFILE_ALL", "1"}});
    program.shell_prefix = "ulimit -v 250000;";
    const RUN run(program);
    EXPECT_EQ(run.status(), 1);
    EXPECT_THAT(run.err(), HasSubstr(err));
    const std::string sites = run.file("mem_tbb_fileline.kvi.log");
    EXPECT_THAT(sites, HasSubstr("\nTime spent dumping:"));
    EXPECT_GT(REPORT(sites).sum("Current bytes", "Module", "runs_out_of_memory"), 20'000'000);
    EXPECT_THAT(run.file("mem_tbb_timeline.kvi.log"), EndsWith(" seconds.\n\n"));
    EXPECT_THAT(run.file("mem_tbb_leak_warning.kvi.log"), HasSubstr("\nTotal leaked bytes: "));
  }
}

TEST(MallocExtension, ReachesTheAllocatorOrAnswersNeutrally) {
  PROGRAM program = tracked("scenarios", {"ask_the_allocator"});
  EXPECT_THAT(RUN(program).out(), testing::ContainsRegex("^known 1, grown 50[0-9]{6}, rate -1\n"));
  program.preload = {};
  EXPECT_EQ(RUN(program).out(), "known -1, grown 0, rate -1\n");
}

// As the allocator tells of them, blocks that realloc keeps and calloc has zeroed are new ones.
TEST(FillPatterns, SpareWhatAProgramCountsOn) {
  EXPECT_EQ(RUN(tracked("scenarios", {"fill_blocks"})).out(),
            "malloc P, calloc ., kept x, moved x, released F\n");
  for (const char* setting : {"mem_alloc_pattern", "mem_free_pattern"}) {
    PROGRAM program = tracked("perl", {"-e", "print join q(,), sort 1..9"}, {{setting, "205"}});
    program.path = "/usr/bin/perl";
    program.preload.insert(program.preload.begin(), TUK_MEM_LIBRARY);
    EXPECT_EQ(RUN(program).out(), "1,2,3,4,5,6,7,8,9") << setting;
  }
}

TEST(TheArena, GivesZerosThoughNewBlocksAreFilled) {
  for (const auto& [whole_blocks, out] : {std::pair("off", "1 1 0 0 0 0"), {"on", "0 1 0 0 0 0"}})
    EXPECT_EQ(RUN(tracked("scenarios", {"fill_new_blocks_with_a_pattern"},
                          {{"mem_utils_no_chunk_allocation", whole_blocks}}))
                  .out(),
              out);
}

TEST(PgoModules, AreListedAtExitInByteOrderEachPairOnce) {
  const RUN run(tracked("scenarios", {"register_pgo_modules"}, {{"debug_msg", "on"}}));
  std::string expected;
  for (const char* pair : {"libZoom.so was last compiled using PGO for:viewer",
                           "libroute.so was last compiled using PGO for:",
                           "libroute.so was last compiled using PGO for:router, large",
                           "lib\xC3\xA9.so was last compiled using PGO for:accents"})
    expected.append("Debug: PGO: The code module ").append(pair).append("\n");
  EXPECT_THAT(run.out(), testing::HasSubstr(expected));
  EXPECT_EQ(RUN(tracked("scenarios", {"register_pgo_modules"})).out(), "");
}

}  // namespace
