// Reports before the end, and of children that only fork.
#include "tests/integration/tracked_program.h"
#include "tests/support/temporary_directory.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre, testing::MatchesRegex;

constexpr const char* taken = "take(unsigned long)";

PROGRAM host(const std::string& scenario, ENVIRONMENT environment, const std::string& prefix = "") {
  environment.insert(
      {{"KORVANE_MEM_REPORT_DIRECTORY", "reports"}, {"KORVANE_MEM_PROFILE_PER_FILELINE", "1"}});
  PROGRAM program = tracked("snapshots", {scenario}, environment);
  program.shell_prefix = prefix;
  return program;
}

REPORT report_in(const fs::path& set, const std::string& name) {
  return REPORT(content_of(set / (name + ".kvi.log")));
}

// Of the last row of a timeline.
std::int64_t sum_of_last_sample(const REPORT& timeline) {
  std::int64_t total = 0;
  for (const auto& [column, cell] : timeline.rows.back().cells)
    if (!column.empty()) total += std::stoll(cell);
  return total;
}

TEST(ASnapshot, IsOfOneMomentAndAgreesWithTheBooksWhileThreadsAllocate) {
  const RUN run(host("among_threads", everything));
  EXPECT_EQ(run.status(), 0) << run.err();
  std::set<std::string> last = names_in(run.directory() / "reports");
  int number = 0;
  for (const std::string& line : split(run.out(), '\n')) {
    if (line.empty()) continue;
    const fs::path set = run.directory() / "reports" / ("snapshot-000" + std::to_string(++number));
    SCOPED_TRACE(set);
    const REPORT sites = report_in(set, "mem_tbb_fileline");
    const std::int64_t blocks = sites.sum("Cumulative blocks", "Function", taken);
    EXPECT_GE(blocks, std::stol(split(line, ' ').at(0)));
    EXPECT_LE(blocks, std::stol(split(line, ' ').at(1)));
    const std::int64_t current = sites.sum("Current bytes");
    EXPECT_GT(current, 0);
    for (const char* column : {"Current bytes", "Cumulative bytes"})
      EXPECT_EQ(sites.sum(column), report_in(set, "mem_tbb_subsystem").sum(column));
    EXPECT_EQ(current, report_in(set, "mem_tbb_pbin_stats").sum("Current bytes"));
    EXPECT_EQ(current, sum_of_last_sample(report_in(set, "mem_tbb_timeline_detailed")));
    EXPECT_EQ(current, sum_of_last_sample(report_in(set, "mem_tbb_pbin_tag_timeline_detailed")));
    EXPECT_THAT(content_of(set / "mem_tbb_leak_warning.kvi.log"),
                testing::HasSubstr("Total leaked bytes: " + std::to_string(current) + "\n"));
    EXPECT_THAT(content_of(set / "mem_tbb_run.kvi.log"), testing::HasSubstr("\nended\tnot yet\n"));
    std::set<std::string> files = names_in(set);
    files.insert({"snapshot-0001", "snapshot-0002", "snapshot-0003", "snapshot-0004"});
    EXPECT_EQ(files, last);
  }
  EXPECT_EQ(number, 4);
}

// What a run leaves, by scenario and setting: its own words, and the snapshots.
TEST(ASnapshot, IsWrittenByTheNextEventOfWhateverThreadAndLeavesItAsItWas) {
  constexpr std::tuple<const char*, const char*, int, const char*, int> rows[] = {
      {"on_unusual_threads", "USR1", 0, "kept: 1\n", 5},
      {"while_idle", "sigusr1", 0,
       "requested: 1, then 0\nthe child ended with 7\nthe child ended with 7\n", 1},
      {"until_killed", "10", 128 + 9, "", 2}};
  for (const auto& [scenario, signal, status, out, snapshots] : rows) {
    SCOPED_TRACE(scenario);
    const bool killed = status != 0;
    const RUN run(host(scenario, {{"KORVANE_MEM_SNAPSHOT_SIGNAL", signal},
                                  {"KORVANE_MEM_SNAPSHOT_INTERVAL", killed ? "1" : ""}}));
    EXPECT_EQ(run.status(), status) << run.err();
    const fs::path reports = run.directory() / "reports";
    EXPECT_EQ(fs::exists(reports / "mem_tbb_fileline.kvi.log"), !killed);
    int found = 0;
    std::string blocks_found;
    for (const std::string& name : names_in(reports)) {
      if (name.starts_with("mem_tbb_")) continue;
      EXPECT_THAT(name, MatchesRegex("snapshot-000[0-9]"));
      const std::int64_t blocks =
          report_in(reports / name, "mem_tbb_fileline").sum("Cumulative blocks", "Function", taken);
      EXPECT_TRUE(blocks > 0 || killed);
      blocks_found += std::to_string(blocks) + "\n";
      ++found;
    }
    EXPECT_EQ(found, snapshots);
    EXPECT_EQ(run.out(), killed ? blocks_found : out);
  }
}

// A signal that can't be had, and a snapshot that can't be written: one line, and nothing is left.
TEST(ASnapshot, ThatCannotBeTakenIsSaid) {
  constexpr const char* rows[][4] = {
      {"", "NONE", "take_over",
       "SIGNAL is \"NONE\", which is the name or number of no signal: [^\n]*"},
      {"", "32", "take_over", "SIGNAL is \"32\", which can't be caught: [^\n]*"},
      {"", "KILL", "take_over", "SIGNAL is \"KILL\", which can't be caught: [^\n]*"},
      {"", "SEGV", "take_over", "SIGNAL is \"SEGV\", which tells of a fault: [^\n]*"},
      {"trap \"\" USR1;", "USR1", "take_over", "which is ignored in this process: [^\n]*"},
      {"", "USR1", "take_over", "taken over signal 10 of KORVANE_MEM_SNAPSHOT_SIGNAL[^\n]*"},
      {"", "USR1", "into_no_directory",
       "a snapshot can't be written into [^ ]*/reports .where.log: No such file or directory.: it "
       "is left out\n([^\n]*\n?){9}"},
      {"", "USR1", "with_one_descriptor",
       "/reports .mem_tbb_timeline_detailed.kvi.log: Too many open files.: it is left out"}};
  for (const auto& [prefix, signal, scenario, said] : rows) {
    SCOPED_TRACE(said);
    const RUN run(
        host(scenario,
             {{"KORVANE_MEM_SNAPSHOT_SIGNAL", signal}, {"KORVANE_MEM_PROFILE_PER_LIBRARY", "1"}},
             prefix));
    EXPECT_THAT(run.err(), MatchesRegex("MEM: [^\n]*" + std::string(said) + "\n?"));
    for (const std::string& name : names_in(run.directory() / "reports"))
      EXPECT_TRUE(name.starts_with("mem_tbb_")) << name;
  }
}

TEST(AFollowedChild, BeginsWithEmptyBooksAndReportsByItself) {
  const RUN run(host("fork_children", {{"KORVANE_MEM_FOLLOW_FORK", "1"},
                                       {"KORVANE_MEM_REPORT_DIRECTORY", "reports/%p"}}));
  EXPECT_EQ(run.out(), "the child ended with 5\n");
  std::map<std::int64_t, std::int64_t> other_by_requested;
  for (const auto& process : fs::directory_iterator(run.directory() / "reports")) {
    const fs::path snapshot = process.path() / "snapshot-0001";  // of the one that ends by _exit
    const REPORT sites =
        report_in(fs::exists(snapshot) ? snapshot : process.path(), "mem_tbb_fileline");
    other_by_requested[sites.sum("Cumulative requested bytes", "Function", taken)] =
        sites.row("Address", "OTHER").number("Current bytes");
    EXPECT_THAT(
        content_of((fs::exists(snapshot) ? snapshot : process.path()) / "mem_tbb_run.kvi.log"),
        testing::HasSubstr("\npid\t" + process.path().filename().string() + "\n"));
  }
  EXPECT_THAT(other_by_requested,
              ElementsAre(std::pair(1000, 0), std::pair(2000, -1024), std::pair(3000, 0)));
}

TEST(AFollowedChild, IsWholeWhereverTheOtherThreadsWere) {
  const RUN run(host("fork_among_threads", {{"KORVANE_MEM_FOLLOW_FORK", "1"},
                                            {"KORVANE_MEM_PROFILE_ALL", "1"},
                                            {"KORVANE_MEM_REPORT_DIRECTORY", "reports/%p"}}));
  EXPECT_EQ(run.out(), "whole: 50\n") << run.err();
  EXPECT_EQ(names_in(run.directory() / "reports").size(), 51U);
}

}  // namespace
