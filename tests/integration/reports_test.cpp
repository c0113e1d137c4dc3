// What a run leaves behind: which files, and what is in them to the byte.
#include "tests/integration/tracked_program.h"

namespace {

using testing::ContainsRegex, testing::MatchesRegex;

TEST(Reports, AreWrittenByFlag) {
  const std::pair<ENVIRONMENT, std::set<std::string>> rows[] = {
      {{}, {}},
      {per_fileline,
       {"mem_tbb_fileline.leaky.log", "mem_tbb_filters.leaky.log", "mem_tbb_subsystem.leaky.log",
        "mem_tbb_subsystem_base_addresses.leaky.log"}},
      {{{"mem_profile_per_fileline", "on"}, {"mem_only_profile_single_executable", "other"}}, {}},
      {{{"KORVANE_MEM_CHECK_LEAKS_FAST", "1"}}, {"mem_tbb_fast_leak_warning.log"}},
      {{{"KORVANE_MEM_CHECK_LEAKS", "1"}, {"MEM_LEAK_TRACKING_IN_VX_MODE", "1"}},
       {"korvane_vx_leak_warning.txt", "mem_tbb_filters.leaky.log"}},
  };
  for (const auto& [environment, files] : rows) {
    const RUN run(tracked("scenarios", {"leak"}, environment));
    EXPECT_EQ(run.err(), "");
    EXPECT_EQ(run.file_names(), files);
  }
}

TEST(Reports, OfSitesModulesAndLeaksAreCompleteToTheByte) {
  const RUN run(tracked("scenarios", {"leak"},
                        {{"KORVANE_MEM_PROFILE_PER_FILELINE", "1"}, {"mem_check_leaks", "on"}}));
  EXPECT_THAT(
      run.file("mem_tbb_fileline.leaky.log"),
      MatchesRegex("MEM: TBB Fileline Tracking Memory Snapshot\\. \\[at index [0-9]+\\]\n\n"
                   "Address\tCurrent bytes\tMax bytes\tPeak bytes\tCumulative bytes\t"
                   "Cumulative requested bytes\tCumulative mismatched bytes\tCurrent blocks\t"
                   "Max blocks\tPeak blocks\tCumulative blocks\tModule\tFile\tLine\tFunction\n"
                   ".*\nTime spent dumping:\t[0-9]+ clicks\\.\t[0-9.e-]+ seconds\\.\n"));
  EXPECT_THAT(
      run.file("mem_tbb_subsystem_base_addresses.leaky.log"),
      ContainsRegex("^\"base address\",\"module\",\"dll_path\"\n(\"0x[0-9a-f]+\",\"[^\"]*\","
                    "\"/[^\"]*\"\n)*\"0\",\"scenarios\",\"[^\"]*/scenarios\"\n$"));
  // The total is the sum of the lines, and nothing freed is listed.
  const std::vector<std::string> lines = split(run.file("mem_tbb_leak_warning.leaky.log"), '\n');
  EXPECT_EQ(lines.at(0), "MEM: TBB Leak Checking Summary.");
  std::int64_t sum = 0;
  std::vector<std::string> of_the_program;
  for (const std::string& line : lines) {
    const std::size_t leaked = line.find(" leaked ");
    if (leaked != line.npos && !line.starts_with("Total"))
      sum += std::stoll(line.substr(leaked + 8));
    if (line.starts_with("scenarios ")) of_the_program.push_back(line);
  }
  const auto leak = [](const std::string& what) {
    return MatchesRegex("scenarios leaked " + what +
                        " object\\(s\\) allocated at "
                        "/[^:]*/scenarios\\.cpp:[0-9]+ [^\n]*leak\\(\\)");
  };
  EXPECT_THAT(of_the_program,
              testing::UnorderedElementsAre(leak("336 bytes in 3"), leak("1024 bytes in 1")));
  EXPECT_EQ(lines.back(), "Total leaked bytes: " + std::to_string(sum));
}

// Two processes end with one summary each in the same file; the second shutdown of each writes
// nothing.
TEST(FastLeakReport, CollectsOneSummaryAProcess) {
  PROGRAM program = tracked("scenarios", {"shut_down_twice"}, {{"mem_check_leaks_fast", "on"}});
  program.shell_prefix = "env mem_check_leaks_fast=on LD_PRELOAD=" TCMALLOC_LIBRARY
                         " " PROGRAMS_DIRECTORY "/scenarios shut_down_twice >/dev/null;";
  const RUN run(program);
  EXPECT_THAT(run.file("mem_tbb_fast_leak_warning.log"),
              MatchesRegex("For more detail, use INI mem_check_leaks=on\n\n("
                           " memory leak summary\n===============================\n"
                           "Leaked bytes:      [ 0-9]{8}[0-9]{4}\n"
                           "Peak bytes on heap:[ 0-9]{8}[0-9]{4}\n"
                           "===============================\n\n){2}"));
}

// Said once, by whoever asks for it: at start-up, or later on in the program.
TEST(WithoutTheHookInterface, NothingIsTrackedAndThatIsSaid) {
  constexpr const char* said =
      "MEM: memory tracking was asked for, but the process's allocator has no hooks (is "
      "libtcmalloc.so.4 preloaded or linked, or libtuk_mem_malloc.so in front of another "
      "allocator? "
      "One that is linked statically can't be hooked): no heap block will be in the reports\n";
  PROGRAM program = tracked("scenarios", {"start_late"});
  program.preload = {};
  EXPECT_EQ(RUN(program).err(), said);
  program.arguments = {"leak"};
  EXPECT_EQ(RUN(program).err(), "");
  program.path = PROGRAMS_DIRECTORY "/call_sites_pie_O2";
  program.environment = per_fileline;
  const RUN run(program);
  EXPECT_EQ(run.err(), said);
  EXPECT_EQ(books_of(run).size(), 25U);
  const REPORT report(run.file("mem_tbb_fileline.kvi.log"));
  EXPECT_EQ(report.rows.size(), 1U);
  EXPECT_EQ(report.row("Address", "OTHER").number("Cumulative blocks"), 0);
}

TEST(InternalError, GoesToTheHostsReporter) {
  constexpr const char* rows[][2] = {{"default", "exe_string != nullptr"},
                                     {"nosuch", "mem_tbb_unwinder"}};
  for (const auto& [unwinder, condition] : rows) {
    const RUN run(tracked("interposing_host", {}, {{"KORVANE_MEM_PROFILE_UNWINDER", unwinder}}));
    EXPECT_EQ(run.status(), 7);
    EXPECT_EQ(run.out(), std::string("caught: ") + condition + "|MEM|mem/mem_tbb_tracker|line\n");
  }
}

}  // namespace
