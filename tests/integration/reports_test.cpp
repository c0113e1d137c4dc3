// What a run leaves behind: which files, and what is in them to the byte.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/integration/tracked_program.h"

namespace {

using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

PROGRAM scenario(const char* name, ENVIRONMENT environment) {
  PROGRAM program = tracked("scenarios", std::move(environment));
  program.arguments = {name};
  return program;
}

struct FILES_ROW {
  ENVIRONMENT environment;
  std::vector<std::string> files;
};

TEST(Reports, AreWrittenByFlag) {
  const std::vector<std::string> per_fileline = {
      "mem_tbb_fileline.leaky.log", "mem_tbb_filters.leaky.log", "mem_tbb_subsystem.leaky.log",
      "mem_tbb_subsystem_base_addresses.leaky.log"};
  const FILES_ROW rows[] = {
      {{}, {}},
      {{{"mem_profile_per_fileline", "on"}}, per_fileline},
      {{{"mem_profile_per_fileline", "on"}, {"mem_only_profile_single_executable", "other"}}, {}},
      {{{"KORVANE_MEM_CHECK_LEAKS", "1"}},
       {"mem_tbb_filters.leaky.log", "mem_tbb_leak_warning.leaky.log"}},
      {{{"KORVANE_MEM_CHECK_LEAKS_FAST", "1"}}, {"mem_tbb_fast_leak_warning.log"}},
      {{{"MEM_LEAK_TRACKING_IN_VX_MODE", "1"}}, {"korvane_vx_leak_warning.txt"}},
      {{{"KORVANE_MEM_CHECK_LEAKS", "1"}, {"MEM_LEAK_TRACKING_IN_VX_MODE", "1"}},
       {"korvane_vx_leak_warning.txt", "mem_tbb_filters.leaky.log"}},
  };
  for (const FILES_ROW& row : rows) {
    const RUN run(scenario("leak", row.environment));
    EXPECT_EQ(run.status(), 0);
    EXPECT_EQ(run.err(), "");
    EXPECT_EQ(run.file_names(), row.files);
  }
}

TEST(FilelineReport, HasItsTitleColumnsAndTiming) {
  const RUN run(scenario("leak", {{"KORVANE_MEM_PROFILE_PER_FILELINE", "1"}}));
  const REPORT report(run.file("mem_tbb_fileline.leaky.log"));
  EXPECT_THAT(
      report.title(),
      ContainsRegex("^MEM: TBB Fileline Tracking Memory Snapshot\\. \\[at index [0-9]+\\]$"));
  EXPECT_THAT(report.header(),
              ElementsAre("Address", "Current bytes", "Max bytes", "Peak bytes", "Cumulative bytes",
                          "Cumulative requested bytes", "Cumulative mismatched bytes",
                          "Current blocks", "Max blocks", "Peak blocks", "Cumulative blocks",
                          "Module", "File", "Line", "Function"));
  EXPECT_THAT(report.timing(),
              ContainsRegex("^Time spent dumping:\t[0-9]+ clicks\\.\t[0-9.e-]+ seconds\\.$"));
  expect_books(report, books_of(run));
  EXPECT_THAT(run.file("mem_tbb_filters.leaky.log"),
              StartsWith("\"PC\",\"module\",\"function\",\"fileline\"\n\"0x"));
  EXPECT_THAT(
      run.file("mem_tbb_subsystem_base_addresses.leaky.log"),
      ContainsRegex("^\"base address\",\"module\",\"dll_path\"\n(\"0x[0-9a-f]+\",\"[^\"]*\","
                    "\"/[^\"]*\"\n)*\"0\",\"scenarios\",\"[^\"]*/scenarios\"\n$"));
}

TEST(LeakReport, ListsEveryLeakToTheByte) {
  const RUN run(scenario("leak", {{"KORVANE_MEM_CHECK_LEAKS", "on"}}));
  const std::string report = run.file("mem_tbb_leak_warning.leaky.log");
  EXPECT_THAT(report, StartsWith("MEM: TBB Leak Checking Summary.\n\n"));
  EXPECT_THAT(report, ContainsRegex("\nscenarios leaked 336 bytes in 3 object\\(s\\) allocated at "
                                    "/[^:]*/scenarios\\.cpp:[0-9]+ [^\n]*leak\\(\\)\n"));
  EXPECT_THAT(report, ContainsRegex("\nscenarios leaked 1024 bytes in 1 object\\(s\\) allocated at "
                                    "/[^:]*/scenarios\\.cpp:[0-9]+ [^\n]*leak\\(\\)\n"));
  // The total is the sum of the lines, and nothing freed is listed.
  std::int64_t sum = 0;
  std::size_t of_the_program = 0;
  const std::vector<std::string> lines = split(report, '\n');
  for (const std::string& line : lines) {
    const std::size_t leaked = line.find(" leaked ");
    if (leaked == std::string::npos || line.starts_with("Total")) continue;
    sum += std::stoll(line.substr(leaked + 8));
    if (line.starts_with("scenarios ")) ++of_the_program;
  }
  EXPECT_EQ(of_the_program, 2U) << report;
  EXPECT_EQ(lines.back(), "Total leaked bytes: " + std::to_string(sum));
}

// Two processes end with one summary each in the same file; the second shutdown of each writes
// nothing.
TEST(FastLeakReport, CollectsOneSummaryAProcess) {
  PROGRAM program = scenario("shut_down_twice", {{"mem_check_leaks_fast", "on"}});
  program.shell_prefix = "env mem_check_leaks_fast=on LD_PRELOAD=" TCMALLOC_LIBRARY
                         " " PROGRAMS_DIRECTORY "/scenarios shut_down_twice >/dev/null;";
  const RUN run(program);
  EXPECT_EQ(run.status(), 0);
  const std::string number = "            ([0-9]+)";
  const std::string report = run.file("mem_tbb_fast_leak_warning.log");
  const std::string summary =
      " memory leak summary\n===============================\nLeaked bytes:      ";
  EXPECT_THAT(report, StartsWith("For more detail, use INI mem_check_leaks=on\n\n" + summary));
  const std::vector<std::string> lines = split(report, '\n');
  ASSERT_EQ(lines.size(), 2U + 2U * 6U) << report;
  for (const std::size_t first : {2U, 8U}) {
    EXPECT_EQ(lines[first], " memory leak summary");
    EXPECT_THAT(lines[first + 2], StartsWith("Leaked bytes:      "));
    EXPECT_THAT(lines[first + 3], StartsWith("Peak bytes on heap:"));
    EXPECT_EQ(lines[first + 2].size(), 19U + 12U);
    EXPECT_EQ(lines[first + 3].size(), 19U + 12U);
    EXPECT_GE(std::stoll(lines[first + 2].substr(19)), 1024);
  }
}

TEST(Tracking, CreditsABlockFromBeforeItToTheCatchAll) {
  const RUN run(scenario("start_late", {}));
  EXPECT_EQ(run.out(), "-1024 -1\n");
}

// The tools are gone when the exit handlers allocate; the lines may be unknown, but nothing is
// lost, and nothing crashes or waits.
TEST(Tracking, GoesOnWhileTheProcessExits) {
  const RUN run(scenario("end_twice", {{"KORVANE_MEM_PROFILE_PER_FILELINE", "1"}}));
  EXPECT_EQ(run.status(), 0) << run.err();
  const REPORT report(run.file("mem_tbb_fileline.kvi.log"));
  const BOOKS books = books_of(run);
  EXPECT_EQ(books.size(), 3U);
  expect_books(report, books);
}

TEST(Tracking, IsExactUnderThreads) {
  for (const char* variable : {"KORVANE_MEM_PROFILE_PER_FILELINE", "KORVANE_MEM_PROFILE_ALL"}) {
    const RUN run(scenario("run_threads", {{variable, "1"}}));
    ASSERT_EQ(run.status(), 0) << run.err();
    const REPORT report(run.file("mem_tbb_fileline.kvi.log"));
    constexpr int threads = 8;
    constexpr int blocks = 20000;
    const REPORT::ROW& site = report.row("Cumulative blocks", std::to_string(threads * blocks));
    std::int64_t requested = 0;
    for (int i = 0; i < blocks; ++i) requested += threads * (16 + i % 7 * 100);
    EXPECT_EQ(site.number("Cumulative requested bytes"), requested);
    EXPECT_EQ(site.number("Current bytes"), 0);
    EXPECT_EQ(site.number("Current blocks"), 0);
    EXPECT_LE(site.number("Max blocks"), 2 * threads);
  }
}

TEST(WithoutTheHookInterface, NothingIsTracked) {
  PROGRAM program = tracked("call_sites_pie_O2", {{"KORVANE_MEM_PROFILE_PER_FILELINE", "1"}});
  program.preload = {};
  const RUN run(program);
  EXPECT_EQ(run.status(), 0);
  EXPECT_EQ(books_of(run).size(), 24U);
  const REPORT report(run.file("mem_tbb_fileline.kvi.log"));
  EXPECT_EQ(report.rows().size(), 1U);
  EXPECT_EQ(report.row("Address", "OTHER").number("Cumulative blocks"), 0);
}

// Programs that know nothing of the library.
TEST(Preloading, ProfilesAnUnmodifiedProgram) {
  PROGRAM program = tracked("call_sites_unlinked", {{"KORVANE_MEM_PROFILE_PER_FILELINE", "1"}});
  program.preload.emplace_back(TUK_MEM_LIBRARY);
  const RUN run(program);
  EXPECT_EQ(run.status(), 0) << run.err();
  expect_books(REPORT(run.file("mem_tbb_fileline.kvi.log")), books_of(run));
}

TEST(Preloading, LeavesTheProgramsOutputAlone) {
  PROGRAM program = {.path = "/usr/bin/sort", .arguments = {"/etc/passwd"}};
  const std::string sorted = RUN(program).out();
  program.environment = {{"KORVANE_MEM_PROFILE_ALL", "1"}};
  program.preload = {TCMALLOC_LIBRARY, TUK_MEM_LIBRARY};
  const RUN run(program);
  EXPECT_EQ(run.status(), 0);
  EXPECT_EQ(run.err(), "");
  EXPECT_EQ(run.out(), sorted);
}

TEST(InternalError, GoesToTheHostsReporter) {
  const RUN run(tracked("interposing_host"));
  EXPECT_EQ(run.status(), 7);
  EXPECT_EQ(run.out(), "caught: exe_string != nullptr|MEM|mem/mem_tbb_tracker|line\n");
}

}  // namespace
