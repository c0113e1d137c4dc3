// Whatever the host does, it runs to the end it chose, and what can be reported is.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/integration/tracked_program.h"

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

PROGRAM survival(const char* scenario, ENVIRONMENT more = {}) {
  more["KORVANE_MEM_PROFILE_ALL"] = "1";
  PROGRAM program = tracked("survival", std::move(more));
  program.arguments = {scenario};
  return program;
}

// The last block the program allocated, as a report shows it.
std::int64_t last_block(const RUN& run) {
  return REPORT(run.file("mem_tbb_fileline.kvi.log"))
      .sum("Current bytes", [](const REPORT::ROW& row) {
        return row.text("Function").ends_with("::take(unsigned long)");
      });
}

struct END_ROW {
  const char* scenario;
  int status;
  bool reports;
};

TEST(TheHost, EndsAsItChose) {
  constexpr int aborted = 128 + 6;
  for (const END_ROW& row :
       {END_ROW{"just_end", 0, true}, END_ROW{"end_threads_late", 0, true},
        END_ROW{"load_and_unload", 0, true}, END_ROW{"interrupt", 0, true},
        END_ROW{"exit_in_a_thread", 7, true}, END_ROW{"quick_exit", 5, false},
        END_ROW{"exit_at_once", 6, false}, END_ROW{"throw_out", aborted, false}}) {
    SCOPED_TRACE(row.scenario);
    const RUN run(survival(row.scenario));
    EXPECT_EQ(run.status(), row.status) << run.err();
    ASSERT_EQ(run.has_file("mem_tbb_fileline.kvi.log"), row.reports);
    if (!row.reports) continue;
    EXPECT_GE(last_block(run), 4096);
  }
}

TEST(TheHost, FindsItsBooksConfirmedWhateverGoesOn) {
  PROGRAM program = tracked("soak", {{"KORVANE_MEM_PROFILE_ALL", "1"}});
  program.arguments = {"3"};
  const RUN run(program);
  EXPECT_EQ(run.status(), 0) << run.out() << run.err();
}

// The children track nothing and report nothing; the parent's figures are its own.
TEST(Fork, LeavesTheParentTrackingAndTheChildNot) {
  const RUN run(survival("fork_under_load"));
  EXPECT_EQ(run.status(), 0) << run.err();
  EXPECT_EQ(run.out(), "0 children failed\n");
  EXPECT_EQ(last_block(run), 4096);
  EXPECT_FALSE(run.has_file("child/mem_tbb_fileline.kvi.log"));
  EXPECT_FALSE(run.has_file("child/mem_tbb_leak_warning.kvi.log"));
}

TEST(AModule, WhoseFileIsGoneIsLookedThrough) {
  const RUN run(survival("load_and_unload"));
  const REPORT report(run.file("mem_tbb_fileline.kvi.log"));
  const auto requested = [&](const char* column, const char* value) {
    return report.sum("Cumulative requested bytes",
                      [&](const REPORT::ROW& row) { return row.text(column) == value; });
  };
  EXPECT_EQ(requested("Module", "copy0"), 300);
  EXPECT_EQ(requested("Module", "copy1"), 0);
  EXPECT_EQ(requested("Module", "copy2"), 300);
  EXPECT_GE(requested("Function", "(anonymous namespace)::load_and_unload()"), 300);
}

TEST(TheLibrary, MayBeLoadedLateAndLetGo) {
  PROGRAM program = tracked("late_loader", {{"KORVANE_MEM_PROFILE_PER_FILELINE", "1"}});
  program.arguments = {TUK_MEM_LIBRARY};
  const RUN run(program);
  EXPECT_EQ(run.status(), 0) << run.err();
  const REPORT report(run.file("mem_tbb_fileline.kvi.log"));
  const auto in_program = [](const REPORT::ROW& row) {
    return row.text("Module") == "late_loader";
  };
  EXPECT_EQ(report.sum("Cumulative requested bytes", in_program), 3000 + 2048 + 4096);
  EXPECT_EQ(report.sum("Current bytes", in_program), 3072);
}

struct FAULT_ROW {
  const char* name;
  const char* preparation;
  ENVIRONMENT environment;
  const char* on_standard_error;
  const char* on_debug_channel;
};

TEST(AReport, ThatCannotBeWrittenIsReportedAndKeepsNoOtherBack) {
  const FAULT_ROW rows[] = {
      {"full disk",
       "ln -s /dev/full mem_tbb_fileline.kvi.log;",
       {},
       "",
       "report mem_tbb_fileline.kvi.log is incomplete: writing it failed"},
      {"half a pair", "mkdir mem_tbb_timeline.kvi.log;", {}, "", ""},
      {"no base addresses",
       "mkdir mem_tbb_subsystem_base_addresses.kvi.log;",
       {},
       "unable to create KMP subsystem base addresses file\n",
       ""},
      {"no filters file",
       "mkdir mem_tbb_filters.kvi.log;",
       {},
       "unable to create KMP filters file\n",
       ""},
  };
  const std::size_t all = RUN(survival("just_end")).file_names().size();
  for (const FAULT_ROW& row : rows) {
    SCOPED_TRACE(row.name);
    PROGRAM program = survival("just_end", {{"debug_msg", "on"}});
    program.shell_prefix = row.preparation;
    const RUN run(program);
    EXPECT_EQ(run.status(), 0);
    EXPECT_EQ(run.err(), row.on_standard_error);
    EXPECT_THAT(run.out(), HasSubstr(row.on_debug_channel));
    EXPECT_EQ(run.file_names().size(), all);
    EXPECT_THAT(run.file("mem_tbb_timeline_detailed.kvi.log"), HasSubstr("Time spent dumping"));
    EXPECT_THAT(run.file("mem_tbb_leak_warning.kvi.log"), HasSubstr("\nTotal leaked bytes: "));
  }
}

TEST(AMissingTool, LeavesEverythingToTheCatchAll) {
  for (const char* symbolizer : {"addr2line", "addr2line_inlining"}) {
    const PROGRAM program =
        survival("load_and_unload",
                 {{"mem_symbolizer", symbolizer}, {"debug_msg", "on"}, {"PATH", "/nowhere"}});
    const RUN run(program);
    EXPECT_EQ(run.status(), 0) << run.err();
    EXPECT_THAT(run.out(), ContainsRegex("addr2line for [^\n]*survival [^\n]*stay unknown"));
    const REPORT report(run.file("mem_tbb_fileline.kvi.log"));
    EXPECT_EQ(report.rows().size(), 1U);
    EXPECT_GE(report.row("Address", "OTHER").number("Current bytes"), 4096);
  }
}

}  // namespace
